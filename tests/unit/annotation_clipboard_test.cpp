// Copying annotations to the clipboard: on Windows the stream and the
// redaction index come back from the clipboard under their registered
// names, byte for byte as written for it; elsewhere there is no clipboard.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "annotations/annotation.h"
#include "annotations/annotation_stream.h"
#include "annotations/clipboard.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"
#ifdef _WIN32
#include <windows.h>
#endif

namespace velmora {
namespace {

std::vector<uint8_t> Bytes(HGLOBAL block, uint32_t size) {
    const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(block));
    std::vector<uint8_t> copy(bytes, bytes + size);
    platform::MemUnlock(block);
    return copy;
}

TEST(AnnotationClipboard, SelectedAnnotationsGoWithTheirRedactionIndex) {
    ErrorRecord record;
    AnnotationList list;
    Annotation* redaction = NewAnnotation(AnnotationFamily::Rectangle, nullptr, &record);
    redaction->nodeFlags = kNodeRedaction | kNodeSelected;
    redaction->rectangle.rect = {10, 10, 40, 30};
    list.Append(redaction, &record);
    list.Append(NewAnnotation(AnnotationFamily::Ellipse, nullptr, &record), &record);
    ASSERT_TRUE(record.ok());

    const bool copied = CopyAnnotationsToClipboard(list, &record);
#ifdef _WIN32
    ASSERT_TRUE(copied) << record.code;
    uint32_t streamSize = 0, indexSize = 0;
    HGLOBAL stream = WriteAnnotationStream(list, true, &streamSize, &record);
    HGLOBAL index = BuildRedactionIndex(list, true, &indexSize, &record);
    ASSERT_NE(index, nullptr);
    ASSERT_TRUE(OpenClipboard(nullptr));
    struct Placed {
        const char16_t* name;
        HGLOBAL block;
        uint32_t size;
    } const placed[] = {{kClipboardAnnotationsFormat, stream, streamSize},
                        {kClipboardRedactionsFormat, index, indexSize}};
    for (const Placed& p : placed) {
        HANDLE data = GetClipboardData(RegisterClipboardFormatW(reinterpret_cast<LPCWSTR>(p.name)));
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(Bytes(data, p.size), Bytes(p.block, p.size));
    }
    CloseClipboard();
    FreeHandle(&stream);
    FreeHandle(&index);
#else
    EXPECT_FALSE(copied);
    EXPECT_EQ(record.code, 120u);
#endif
}

}  // namespace
}  // namespace velmora
