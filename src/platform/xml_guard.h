// A look at XML text before TinyXML parses it. TinyXML parses, copies, prints and destroys nested
// elements recursively and takes time with the square of an element's attributes, so a text can
// exhaust the stack of any thread or stop the worker for seconds. Any thread.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <string>

constexpr std::size_t MaxNesting = 64;       // elements inside one another
constexpr std::size_t MaxAttributes = 1000;  // on one element

struct XmlLimits {
    std::size_t nesting = MaxNesting;
    std::size_t attributes = MaxAttributes;
};

// What may be parsed of a text: it ends at the start tag that exceeds a limit.
struct XmlVerdict {
    std::size_t length;      // bytes up to there, or up to the text's first NUL
    const char* problem;     // null when TinyXML's own tree stays within the limits
    TiXmlEncoding encoding;  // in which TinyXML reads the end of it
};

// Goes through the text as TinyXML's Parse would with this encoding, only without building a tree.
XmlVerdict ExamineXml(const std::string& text, TiXmlEncoding encoding, const XmlLimits& limits = {});
