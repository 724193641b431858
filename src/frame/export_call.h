// The checks every exported function runs, in their fixed order: the
// initialisation gate, handles (6), values (87), pointers (998), windows
// (1400); then the work collects its first error in `record`, and Finish
// publishes it. A failed check sets the last error by code and returns false,
// so an export reads:
//
//     ExportCall call;
//     if (!call.Gate() || !call.Handle(tiff) || !call.Value(page != 0)) return 0;
//     ... work with call.record ...
//     return call.Finish() ? result : 0;
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>

#include "frame/error_record.h"
#include "frame/library.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

namespace velmora {

class ExportCall {
public:
    bool Gate() { return EnsureLibraryInitialized() != 0; }
    bool Handle(HGLOBAL handle) { return platform::IsValidHandle(handle) || Fail(kErrInvalidHandle); }
    bool Value(bool inRange) { return inRange || Fail(kErrInvalidParameter); }
    bool Readable(const void* pointer, size_t bytes) {
        return platform::IsReadableMemory(pointer, bytes) || Fail(kErrNoAccess);
    }
    bool Writable(void* pointer, size_t bytes) {
        return platform::IsWritableMemory(pointer, bytes) || Fail(kErrNoAccess);
    }
    bool String(const char* text) { return platform::IsReadableString(text) || Fail(kErrNoAccess); }
    bool String(const char16_t* text) { return platform::IsReadableString(text) || Fail(kErrNoAccess); }
    bool Callable(const void* code) { return platform::IsCallable(code) || Fail(kErrNoAccess); }
    // A host's progress callback: none, or code that can be called (998).
    bool Progress(VelmoraProgressProc progress) {
        return progress == nullptr || Callable(reinterpret_cast<const void*>(progress));
    }
    bool Window(HWND window) { return platform::IsWindowHandle(window) || Fail(kErrInvalidWindow); }
    // The library object behind a host's handle, found by `lookup` (null for
    // a handle of another kind); null after error 6.
    template <typename T>
    T* Object(HGLOBAL handle, T* (*lookup)(HGLOBAL)) {
        if (!Handle(handle)) return nullptr;
        T* object = lookup(handle);
        if (object == nullptr) Fail(kErrInvalidHandle);
        return object;
    }
    // A host's record that begins with its own size: the size field readable
    // (998), the size one of the record's listed `sizes` (87), then the whole
    // record readable (998). The size, or 0 after a failure.
    template <typename Record, typename Size = decltype(Record::size)>
    Size Sized(const Record* host, std::initializer_list<Size> sizes) {
        return Sized(host, sizes.begin(), sizes.size());
    }
    template <typename Record, typename Size, size_t count>
    Size Sized(const Record* host, const Size (&sizes)[count]) {
        return Sized(host, sizes, count);
    }
    // An out-parameter: writable (998), then cleared, so that it holds zero
    // whatever happens next.
    template <typename T>
    bool Out(T* pointer) {
        if (!Writable(pointer, sizeof *pointer)) return false;
        *pointer = T{};
        return true;
    }
    // A host's narrow string (readable, 998) in UTF-16; a string the system
    // code page cannot convert leaves the conversion's error in the record.
    bool Widen(const char* text, std::u16string* wide) {
        if (!String(text)) return false;
        uint32_t error = 0;
        if (platform::NarrowToWide(text, wide, &error)) return true;
        SetRecordError(&record, error, 0);
        return false;
    }

    // 1 when the work succeeded; otherwise publishes the record and returns 0.
    int Finish() { return FinishWithRecord(record); }

    static bool Fail(uint32_t code) {
        SetErrorCode(code);
        return false;
    }

    ErrorRecord record;

private:
    template <typename Record, typename Size>
    Size Sized(const Record* host, const Size* sizes, size_t count) {
        if (!Readable(host, sizeof host->size)) return 0;
        const Size size = host->size;
        bool listed = false;
        for (size_t i = 0; i < count; ++i) listed = listed || size == sizes[i];
        if (!Value(listed) || !Readable(host, size)) return 0;
        return size;
    }
};

}  // namespace velmora
