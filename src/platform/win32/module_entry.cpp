// The DLL's entry point: the system loader's notifications.
#include <windows.h>

#include "platform/platform.h"


extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    switch (reason) {
        case DLL_PROCESS_ATTACH: velmora::ProcessAttach(instance); break;
        case DLL_PROCESS_DETACH: velmora::ProcessDetach(); break;
        default: break;
    }
    return TRUE;
}
