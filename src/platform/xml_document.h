// Reading XML documents: the system's parser walks a document from a file or
// from memory and reports its elements, in document order, to a visitor.
// Linux parses with libexpat, Windows with its XmlLite service. Names and
// values reach the visitor as NUL-terminated UTF-16, entities resolved; a
// document type declaration is refused rather than processed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velmora::platform {

struct XmlAttribute {
    const char16_t* name;
    const char16_t* value;
};

class XmlVisitor {
public:
    // An element's start with its attributes (valid during the call only).
    // Returning false stops the walk, which then fails with `kXmlStopped`.
    virtual bool StartElement(const char16_t* name, const XmlAttribute* attributes, size_t count) = 0;
    virtual void EndElement() = 0;

protected:
    ~XmlVisitor() = default;
};

// The error of a walk that the visitor stopped.
constexpr uint32_t kXmlStopped = 1223;
// The error of a document that is not well-formed XML.
constexpr uint32_t kXmlMalformed = 13;

// Walks the whole document; false with an error code when the file cannot be
// read, the document is not well-formed, memory runs out (8) or the visitor
// stopped the walk.
bool WalkXmlFile(const std::u16string& path, XmlVisitor* visitor, uint32_t* error);
bool WalkXmlBuffer(const void* bytes, size_t size, XmlVisitor* visitor, uint32_t* error);

}  // namespace velmora::platform
