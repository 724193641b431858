// System message texts where there is no system to ask: the standard texts of
// the common Win32 error codes and OLE result codes, so that messages read the
// same on every platform. Codes 8 and 14 are left out on purpose (the message
// builder has its own texts for them), and so is 120, which it never asks for.

#include "platform/system_messages.h"

namespace velmora {

namespace {

struct SystemMessage {
    uint32_t code;
    const char* text;  // ASCII
};

// Sorted by code.
constexpr SystemMessage kSystemMessages[] = {
    {1, "Incorrect function."},
    {2, "The system cannot find the file specified."},
    {3, "The system cannot find the path specified."},
    {4, "The system cannot open the file."},
    {5, "Access is denied."},
    {6, "The handle is invalid."},
    {7, "The storage control blocks were destroyed."},
    {9, "The storage control block address is invalid."},
    {10, "The environment is incorrect."},
    {11, "An attempt was made to load a program with an incorrect format."},
    {12, "The access code is invalid."},
    {13, "The data is invalid."},
    {15, "The system cannot find the drive specified."},
    {16, "The directory cannot be removed."},
    {17, "The system cannot move the file to a different disk drive."},
    {18, "There are no more files."},
    {19, "The media is write protected."},
    {20, "The system cannot find the device specified."},
    {21, "The device is not ready."},
    {23, "Data error (cyclic redundancy check)."},
    {24, "The program issued a command but the command length is incorrect."},
    {25, "The drive cannot locate a specific area or track on the disk."},
    {26, "The specified disk or diskette cannot be accessed."},
    {27, "The drive cannot find the sector requested."},
    {28, "The printer is out of paper."},
    {29, "The system cannot write to the specified device."},
    {30, "The system cannot read from the specified device."},
    {31, "A device attached to the system is not functioning."},
    {32, "The process cannot access the file because it is being used by another process."},
    {33, "The process cannot access the file because another process has locked a portion of the file."},
    {36, "Too many files opened for sharing."},
    {38, "Reached the end of the file."},
    {39, "The disk is full."},
    {50, "The request is not supported."},
    {53, "The network path was not found."},
    {65, "Network access is denied."},
    {67, "The network name cannot be found."},
    {80, "The file exists."},
    {82, "The directory or file cannot be created."},
    {87, "The parameter is incorrect."},
    {110, "The system cannot open the device or file specified."},
    {111, "The file name is too long."},
    {112, "There is not enough space on the disk."},
    {122, "The data area passed to a system call is too small."},
    {123, "The filename, directory name, or volume label syntax is incorrect."},
    {126, "The specified module could not be found."},
    {127, "The specified procedure could not be found."},
    {129, "The %1 application cannot be run in Win32 mode."},
    {145, "The directory is not empty."},
    {161, "The specified path is invalid."},
    {170, "The requested resource is in use."},
    {183, "Cannot create a file when that file already exists."},
    {206, "The filename or extension is too long."},
    {234, "More data is available."},
    {259, "No more data is available."},
    {267, "The directory name is invalid."},
    {995, "The I/O operation has been aborted because of either a thread exit or an application request."},
    {998, "Invalid access to memory location."},
    {1113, "No mapping for the Unicode character exists in the target multi-byte code page."},
    {1157, "One of the library files needed to run this application cannot be found."},
    {1223, "The operation was canceled by the user."},
    {1392, "The file or directory is corrupted and unreadable."},
    {1400, "Invalid window handle."},
    {1450, "Insufficient system resources exist to complete the requested service."},
    {1460, "This operation returned because the timeout period expired."},
    {0x80004001, "Not implemented"},
    {0x80004002, "No such interface supported"},
    {0x80004003, "Invalid pointer"},
    {0x80004004, "Operation aborted"},
    {0x80004005, "Unspecified error"},
    {0x80010106, "Cannot change thread mode after it is set."},
    {0x800401F0, "CoInitialize has not been called."},
    {0x80070005, "Access is denied."},
    {0x8007000E, "Not enough memory resources are available to complete this operation."},
    {0x80070057, "The parameter is incorrect."},
};

constexpr bool SortedByCode() {
    for (size_t i = 1; i < sizeof kSystemMessages / sizeof kSystemMessages[0]; ++i) {
        if (kSystemMessages[i - 1].code >= kSystemMessages[i].code) {
            return false;
        }
    }
    return true;
}
static_assert(SortedByCode(), "kSystemMessages must be sorted by code for the binary search");

const SystemMessage* FindSystemMessage(uint32_t code) {
    size_t low = 0;
    size_t high = sizeof kSystemMessages / sizeof kSystemMessages[0];
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (kSystemMessages[middle].code < code) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low < sizeof kSystemMessages / sizeof kSystemMessages[0] && kSystemMessages[low].code == code) {
        return &kSystemMessages[low];
    }
    return nullptr;
}

}  // namespace

bool SystemMessageText(uint32_t code, char16_t* buffer, size_t size) {
    const SystemMessage* message = FindSystemMessage(code);
    if (message == nullptr) {
        return false;
    }
    if (size == 0 || buffer == nullptr) {
        return true;
    }
    size_t i = 0;
    for (; i + 1 < size && message->text[i] != '\0'; ++i) {
        buffer[i] = static_cast<char16_t>(static_cast<unsigned char>(message->text[i]));
    }
    buffer[i] = u'\0';
    return true;
}

}  // namespace velmora
