// Copying annotations to the system clipboard, where other processes find
// them under two formats registered by name: the selected annotations (and
// those linked to them) as an annotation stream, and their redaction index
// beside it when any of them is a redaction.
#pragma once

#include "annotations/annotation.h"
#include "frame/error_record.h"

namespace velmora {

extern const char16_t kClipboardAnnotationsFormat[];  // "Solvenir Velmora Annotations"
extern const char16_t kClipboardRedactionsFormat[];   // "Solvenir Velmora Redactions"

// Replaces the clipboard's contents with the list's selected annotations.
// Fails with the system's error, 120 where there is no system clipboard;
// the clipboard is then left empty.
bool CopyAnnotationsToClipboard(const AnnotationList& list, ErrorRecord* record);

}  // namespace velmora
