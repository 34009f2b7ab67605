// XML text that comes from outside, made such that what is kept of it can be saved, read back and
// sent: valid UTF-8, within the limits of the guard, and the same after each reading. Any thread.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <memory>
#include <string>

#include "platform/xml_guard.h"

// Parses the text up to its first NUL, or up to where it exceeds the limits, as TinyXML's Parse
// does: what stands before an error is kept. Whatever the text says of its encoding, it is read as
// UTF-8, in which everything is kept and sent; bytes that are none are taken for ISO 8859-1.
XmlVerdict ParseGuarded(TiXmlDocument& document, const char* text, std::size_t length);

// Makes the values below valid UTF-8, when they were read in the given encoding, and such that they
// are read back as they are printed.
void MakePrintable(TiXmlNode& node, TiXmlEncoding encoding);

// A copy in the form that it has after it was printed, saved and read again, for an element that lies
// depth levels below the root: blanks that only references gave are gone, and bytes that are no UTF-8.
// Null when it would not be read as it is printed: a declaration's values may hold quotes.
std::unique_ptr<TiXmlElement> DurableCopy(const TiXmlElement& element, std::size_t depth);

// The text as TinyXML's LoadFile takes it from a file: every line ends with a line feed.
std::string WithLineFeeds(const std::string& text);
