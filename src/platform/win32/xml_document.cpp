// XML walking on the system's XmlLite reader. mingw-w64 ships its header but
// no import library, so the reader's one entry point is looked up in
// xmllite.dll when first needed. Names and values are copied out of the
// reader (its pointers last only until it moves) into buffers that grow with
// realloc.
#include "platform/xml_document.h"

#include <windows.h>
#include <objidl.h>
#include <shlwapi.h>
#include <xmllite.h>

#include <cwchar>

#include "platform/growing_buffer.h"

namespace velmora::platform {
namespace {

constexpr uint32_t kNotEnoughMemory = 8;

using CreateReaderProc = HRESULT(WINAPI*)(REFIID, void**, IMalloc*);

CreateReaderProc ReaderFactory() {
    static const CreateReaderProc factory = [] {
        HMODULE module = LoadLibraryW(L"xmllite.dll");
        return module == nullptr ? nullptr
                                 : reinterpret_cast<CreateReaderProc>(
                                       reinterpret_cast<void*>(GetProcAddress(module, "CreateXmlReader")));
    }();
    return factory;
}

uint32_t ErrorOf(HRESULT result) {
    if (result == E_OUTOFMEMORY) return kNotEnoughMemory;
    if (HRESULT_FACILITY(result) == FACILITY_WIN32) return HRESULT_CODE(result);
    return kXmlMalformed;
}

// The current element's name and attributes, copied one after the other.
class ElementCopy {
public:
    bool Add(const WCHAR* text, UINT length) {
        if (length > SIZE_MAX / 2 - used_ - 1 || !text_.Reserve(used_ + length + 1) || !offsets_.Reserve(count_ + 1)) {
            return false;
        }
        offsets_.data()[count_++] = used_;
        for (UINT i = 0; i < length; ++i) text_.data()[used_++] = static_cast<char16_t>(text[i]);
        text_.data()[used_++] = 0;
        return true;
    }
    bool Deliver(XmlVisitor* visitor, bool* stopped) {
        const size_t attributes = (count_ - 1) / 2;
        if (!attributes_.Reserve(attributes + 1)) return false;
        const char16_t* text = text_.data();
        for (size_t i = 0; i < attributes; ++i) {
            attributes_.data()[i] = XmlAttribute{text + offsets_.data()[1 + 2 * i], text + offsets_.data()[2 + 2 * i]};
        }
        *stopped = !visitor->StartElement(text, attributes_.data(), attributes);
        used_ = count_ = 0;
        return true;
    }

private:
    GrowingBuffer<char16_t> text_;
    GrowingBuffer<size_t> offsets_;
    GrowingBuffer<XmlAttribute> attributes_;
    size_t used_ = 0;
    size_t count_ = 0;
};

// Copies the element the reader stands on, with its attributes.
HRESULT CopyElement(IXmlReader* reader, ElementCopy* copy) {
    const WCHAR* text = nullptr;
    UINT length = 0;
    HRESULT result = reader->GetQualifiedName(&text, &length);
    if (FAILED(result)) return result;
    if (!copy->Add(text, length)) return E_OUTOFMEMORY;
    for (result = reader->MoveToFirstAttribute(); result == S_OK; result = reader->MoveToNextAttribute()) {
        if (FAILED(result = reader->GetQualifiedName(&text, &length))) return result;
        if (!copy->Add(text, length)) return E_OUTOFMEMORY;
        if (FAILED(result = reader->GetValue(&text, &length))) return result;
        if (!copy->Add(text, length)) return E_OUTOFMEMORY;
    }
    return FAILED(result) ? result : S_OK;
}

bool Walk(IStream* stream, XmlVisitor* visitor, uint32_t* error) {
    const CreateReaderProc create = ReaderFactory();
    if (create == nullptr) {
        *error = GetLastError() != 0 ? GetLastError() : ERROR_MOD_NOT_FOUND;
        return false;
    }
    IXmlReader* reader = nullptr;
    HRESULT result = create(__uuidof(IXmlReader), reinterpret_cast<void**>(&reader), nullptr);
    if (SUCCEEDED(result)) result = reader->SetProperty(XmlReaderProperty_DtdProcessing, DtdProcessing_Prohibit);
    if (SUCCEEDED(result)) result = reader->SetInput(stream);
    ElementCopy copy;
    bool stopped = false;
    XmlNodeType type;
    while (SUCCEEDED(result) && !stopped && (result = reader->Read(&type)) == S_OK) {
        if (type == XmlNodeType_EndElement) {
            visitor->EndElement();
        } else if (type == XmlNodeType_Element) {
            const bool empty = reader->IsEmptyElement() != FALSE;
            result = CopyElement(reader, &copy);
            if (SUCCEEDED(result) && !copy.Deliver(visitor, &stopped)) result = E_OUTOFMEMORY;
            if (SUCCEEDED(result) && !stopped && empty) visitor->EndElement();
        }
    }
    if (reader != nullptr) reader->Release();
    if (stopped) {
        *error = kXmlStopped;
        return false;
    }
    if (FAILED(result)) {
        *error = ErrorOf(result);
        return false;
    }
    return true;
}

}  // namespace

bool WalkXmlBuffer(const void* bytes, size_t size, XmlVisitor* visitor, uint32_t* error) {
    if (size > UINT_MAX) {
        *error = kNotEnoughMemory;
        return false;
    }
    IStream* stream = SHCreateMemStream(static_cast<const BYTE*>(bytes), static_cast<UINT>(size));
    if (stream == nullptr) {
        *error = kNotEnoughMemory;
        return false;
    }
    const bool ok = Walk(stream, visitor, error);
    stream->Release();
    return ok;
}

bool WalkXmlFile(const std::u16string& path, XmlVisitor* visitor, uint32_t* error) {
    IStream* stream = nullptr;
    const HRESULT result = SHCreateStreamOnFileW(reinterpret_cast<const WCHAR*>(path.c_str()), STGM_READ, &stream);
    if (FAILED(result)) {
        *error = ErrorOf(result);
        return false;
    }
    const bool ok = Walk(stream, visitor, error);
    stream->Release();
    return ok;
}

}  // namespace velmora::platform
