// The four entry points of an in-process component server. This edition
// serves no class: the entry points exist so that the module can be
// registered, and answer with fixed results.
#include "frame/library.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

#if defined(_WIN32)
#define VELMORA_COM_EXPORT __declspec(dllexport)
#else
#define VELMORA_COM_EXPORT VELMORA_EXPORT
#endif

extern "C" VELMORA_COM_EXPORT HRESULT VELMORA_API DllGetClassObject(REFCLSID, REFIID, LPVOID* ppv) {
    if (ppv != nullptr) *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

// With no objects served, the module may always be unloaded.
extern "C" VELMORA_COM_EXPORT HRESULT VELMORA_API DllCanUnloadNow(void) { return S_OK; }

extern "C" VELMORA_COM_EXPORT HRESULT VELMORA_API DllRegisterServer(void) {
    if (velmora::EnsureLibraryInitialized()) return S_OK;
    return static_cast<HRESULT>(velmora::platform::GetSystemError());
}

// One entry point under both names. On 32-bit Windows the alias names the
// stdcall-decorated symbol.
#if defined(_WIN32) && !defined(_WIN64)
#define VELMORA_REGISTER_SERVER_SYMBOL "DllRegisterServer@0"
#else
#define VELMORA_REGISTER_SERVER_SYMBOL "DllRegisterServer"
#endif
extern "C" VELMORA_COM_EXPORT HRESULT VELMORA_API DllUnregisterServer(void)
    __attribute__((alias(VELMORA_REGISTER_SERVER_SYMBOL)));
