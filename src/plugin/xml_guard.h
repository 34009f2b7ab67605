// A look at XML text before TinyXML parses it. TinyXML parses, copies and destroys nested elements
// recursively and takes time with the square of an element's attributes, so a text can exhaust the
// stack of any thread or stop the worker for seconds.
#pragma once

#include <cstddef>

class TiXmlDocument;
class TiXmlNode;

constexpr int MaxNesting = 64;       // elements inside one another
constexpr int MaxAttributes = 1000;  // on one element

// What may be parsed of a text: it ends where nesting or attributes exceed the limits.
struct XmlVerdict {
    std::size_t length;   // bytes up to there
    const char* problem;  // null when the whole text may be parsed
};

// Never counts fewer levels than TinyXML would build, whatever the text; text that is made to
// confuse a reader is counted as if no element in it were ever closed.
XmlVerdict ExamineXml(const char* text, std::size_t length);

// Parses the text up to its first NUL, or up to where it exceeds the limits, as TinyXML's Parse
// does: what stands before an error is kept. Whatever the text says of its encoding, it is read as
// UTF-8, in which everything is kept and sent; bytes that are none are taken for ISO 8859-1.
// Any thread.
XmlVerdict ParseGuarded(TiXmlDocument& document, const char* text, std::size_t length);

// Changes the values below that would not be read back as they are printed: bytes that are no UTF-8
// are taken for ISO 8859-1, "&#x" becomes "&#X".
void MakePrintable(TiXmlNode& node);

// Why a file of this text must not be given to LoadFile, which parses it where it lies; null when
// it may be.
const char* RefuseFile(const char* text, std::size_t length);
