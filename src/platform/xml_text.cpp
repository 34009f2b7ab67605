#include "platform/xml_text.h"

#include <cstring>

#include "platform/utf8.h"

namespace {

// TinyXML as its author left it (2.6.2) prints what looks like a hexadecimal reference as it stands,
// up to the next ";", and so loses the text that was meant; distributions have mended that.
bool PrintsReferencesRaw() {
    std::string printed;
    TiXmlBase::EncodeString("&#x41;", &printed);
    return printed == "&#x41;";
}

std::string Printable(const std::string& value, TiXmlEncoding encoding) {
    static const bool raw = PrintsReferencesRaw();
    std::string clean = encoding == TIXML_ENCODING_LEGACY ? Latin1ToUtf8(value) : ToUtf8(value);
    for (std::size_t at = raw ? clean.find("&#x") : std::string::npos; at != std::string::npos;
         at = clean.find("&#x", at))
        clean[at + 2] = 'X';
    return clean;
}

std::string Print(const TiXmlNode& node) {
    std::string text;
    text << node;
    return text;
}

std::unique_ptr<TiXmlElement> Read(const std::string& text, std::size_t depth) {
    if (ExamineXml(text, TIXML_ENCODING_UTF8, {MaxNesting - depth, MaxAttributes}).problem != nullptr)
        return nullptr;
    TiXmlDocument document;
    document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    const TiXmlElement* const element = document.FirstChildElement();
    if (element == nullptr || document.Error()) return nullptr;
    return std::make_unique<TiXmlElement>(*element);
}

// The values of a declaration are printed as they are, but read like those of attributes.
bool HasUnprintableDeclaration(const TiXmlNode& node) {
    const TiXmlDeclaration* const declaration = node.ToDeclaration();
    if (declaration != nullptr) {
        const std::string values =
            std::string(declaration->Version()) + declaration->Encoding() + declaration->Standalone();
        if (values.find_first_of("\"&") != std::string::npos) return true;
    }
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        if (HasUnprintableDeclaration(*child)) return true;
    return false;
}

}  // namespace

XmlVerdict ParseGuarded(TiXmlDocument& document, const char* text, std::size_t length) {
    std::string utf8 = ToUtf8(std::string(text, strnlen(text, length)));
    const XmlVerdict verdict = ExamineXml(utf8, TIXML_ENCODING_UTF8);
    utf8.resize(verdict.length);
    document.Parse(utf8.c_str(), nullptr, TIXML_ENCODING_UTF8);
    MakePrintable(document, verdict.encoding);
    return verdict;
}

void MakePrintable(TiXmlNode& node, TiXmlEncoding encoding) {
    TiXmlElement* const element = node.ToElement();
    for (TiXmlAttribute* attribute = element != nullptr ? element->FirstAttribute() : nullptr;
         attribute != nullptr; attribute = attribute->Next())
        attribute->SetValue(Printable(attribute->ValueStr(), encoding));
    if (node.ToText() != nullptr) node.SetValue(Printable(node.ValueStr(), encoding));
    for (TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        MakePrintable(*child, encoding);
}

std::unique_ptr<TiXmlElement> DurableCopy(const TiXmlElement& element, std::size_t depth) {
    if (HasUnprintableDeclaration(element)) return nullptr;
    std::string text = WithLineFeeds(ToUtf8(Print(element)));
    for (int reading = 0; reading < 4; ++reading) {  // each may drop blanks that the last one uncovered
        std::unique_ptr<TiXmlElement> copy = Read(text, depth);
        if (!copy) return nullptr;
        const std::string printed = WithLineFeeds(ToUtf8(Print(*copy)));
        if (printed == text) return copy;
        text = printed;
    }
    return nullptr;
}

std::string WithLineFeeds(const std::string& text) {
    std::string lines;
    lines.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r')
            lines += text[i];
        else if (i + 1 == text.size() || text[i + 1] != '\n')
            lines += '\n';
    }
    return lines;
}
