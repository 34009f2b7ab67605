#include "plugin/xml_guard.h"

#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

#include "plugin/utf8.h"

namespace {

// TinyXML may look this far past a multi-byte character that the end of the text cuts off.
constexpr std::size_t SpareNuls = 8;

constexpr std::ptrdiff_t LongestReference = 10;  // bytes of "&#1114111;"

bool BeginsName(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return std::isalpha(byte) != 0 || byte == '_' || byte >= 127;
}

// Follows the tags of one text as TinyXML would, until something comes up that might make TinyXML
// see other tags than we do. From there on every start tag counts and nothing is closed any more.
class Scanner {
public:
    Scanner(const char* text, std::size_t length) : m_pText(text), m_p(text), m_pEnd(text + length) {}

    XmlVerdict Scan() {
        while (m_p < m_pEnd && m_pProblem == nullptr) {
            if (!m_bTrusted)
                CountByte();
            else if (*m_p == '<')
                Markup();
            else
                Character();
        }
        return {static_cast<std::size_t>(m_p - m_pText), m_pProblem};
    }

private:
    void CountByte() {
        if (*m_p == '<' && m_p + 1 < m_pEnd && BeginsName(m_p[1])) Descend(m_p);
        if (*m_p == '=') Attribute(m_p);
        if (m_pProblem == nullptr) ++m_p;
    }

    void Descend(const char* tag) {
        m_nAttributes = m_bTrusted ? 0 : m_nAttributes;
        if (++m_nDepth > MaxNesting) Stop(tag, "too many nested elements");
    }

    void Attribute(const char* tag) {
        if (++m_nAttributes > MaxAttributes) Stop(tag, "too many attributes");
    }

    void Stop(const char* where, const char* problem) {
        m_p = where;
        m_pProblem = problem;
    }

    bool At(const char* token) const {
        const std::size_t length = std::strlen(token);
        return static_cast<std::size_t>(m_pEnd - m_p) >= length && std::memcmp(m_p, token, length) == 0;
    }

    const char* EndOf(const char* token, std::size_t skip) const {
        const std::size_t length = std::strlen(token);
        const char* const found = std::search(m_p + skip, m_pEnd, token, token + length);
        return found == m_pEnd ? m_pEnd : found + length;
    }

    // One character of text or of a quoted value. TinyXML reads a numeric reference up to the
    // next ";" however far that is, and as many bytes as the first byte of a UTF-8 sequence says.
    void Character() {
        if (*m_p == '&' && m_p + 1 < m_pEnd && m_p[1] == '#')
            m_bTrusted = IsReference();
        else if (BeginsUtf8Sequence(*m_p))
            m_bTrusted = Utf8SequenceLength(m_p, m_pEnd) != 0;
        if (m_bTrusted) ++m_p;
    }

    bool IsReference() const {
        const char* const limit = m_p + std::min<std::ptrdiff_t>(LongestReference, m_pEnd - m_p);
        const char* const end = std::find(m_p, limit, ';');
        return end != limit && std::all_of(m_p + 2, end, [](char c) {
                   return c == 'x' || std::isxdigit(static_cast<unsigned char>(c)) != 0;
               });
    }

    void Markup() {
        if (At("<!--")) {
            m_p = EndOf("-->", 4);
        } else if (At("<![CDATA[")) {
            m_p = EndOf("]]>", 9);
        } else if (At("</")) {
            m_p = EndOf(">", 2);
            m_nDepth -= m_nDepth > 0 ? 1 : 0;
        } else if (m_p + 1 < m_pEnd && BeginsName(m_p[1])) {
            StartTag();
        } else {
            Other();
        }
    }

    void StartTag() {
        const char* const tag = m_p;
        Descend(tag);
        if (m_pProblem != nullptr) return;
        for (++m_p; m_bTrusted && m_pProblem == nullptr && m_p < m_pEnd && *m_p != '>';)
            TagByte(tag);
        if (!m_bTrusted || m_pProblem != nullptr || m_p == m_pEnd) return;
        m_nDepth -= m_p[-1] == '/' ? 1 : 0;
        ++m_p;
    }

    void TagByte(const char* tag) {
        const char byte = *m_p;
        if (byte == '"' || byte == '\'')
            Quoted(byte);
        else
            Character();
        if (byte == '=') Attribute(tag);
    }

    void Quoted(char quote) {
        ++m_p;
        while (m_bTrusted && m_p < m_pEnd && *m_p != quote)
            Character();
        if (m_bTrusted && m_p < m_pEnd) ++m_p;
    }

    // A declaration, a document type, or something unknown: all end at the next ">", but the
    // values of a declaration may hide one.
    void Other() {
        const char* const end = EndOf(">", 1);
        const bool quiet = std::count(m_p, end, '"') % 2 == 0 && std::count(m_p, end, '\'') % 2 == 0 &&
                           std::find(m_p, end, '&') == end;
        if (At("<?") && (m_nDepth > 0 || !quiet))
            m_bTrusted = false;
        else
            m_p = end;
    }

    const char* const m_pText;
    const char* m_p;
    const char* const m_pEnd;
    int m_nDepth = 0;
    int m_nAttributes = 0;
    bool m_bTrusted = true;
    const char* m_pProblem = nullptr;
};

// TinyXML prints "&#x" as it stands, up to the next ";", taking it for a reference, and reads as many
// bytes as the first one of a sequence says, a closing quote among them.
std::string Printable(const std::string& value) {
    std::string clean = ToUtf8(value.data(), value.size(), 0);
    for (std::size_t at = clean.find("&#x"); at != std::string::npos; at = clean.find("&#x", at))
        clean[at + 2] = 'X';
    return clean;
}

}  // namespace

XmlVerdict ExamineXml(const char* text, std::size_t length) {
    return Scanner(text, length).Scan();
}

XmlVerdict ParseGuarded(TiXmlDocument& document, const char* text, std::size_t length) {
    std::string utf8 = ToUtf8(text, strnlen(text, length), SpareNuls);
    const XmlVerdict verdict = ExamineXml(utf8.data(), utf8.size());
    utf8.resize(verdict.length);
    utf8.append(SpareNuls, '\0');
    document.Parse(utf8.c_str(), nullptr, TIXML_ENCODING_UTF8);
    MakePrintable(document);
    return verdict;
}

void MakePrintable(TiXmlNode& node) {
    TiXmlElement* const element = node.ToElement();
    for (TiXmlAttribute* attribute = element != nullptr ? element->FirstAttribute() : nullptr;
         attribute != nullptr; attribute = attribute->Next())
        attribute->SetValue(Printable(attribute->ValueStr()));
    if (node.ToText() != nullptr) node.SetValue(Printable(node.ValueStr()));
    for (TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling())
        MakePrintable(*child);
}

const char* RefuseFile(const char* text, std::size_t length) {
    if (strnlen(text, length) != length) return "NUL in the text";
    if (EndsInsideUtf8Sequence(text, length)) return "incomplete character";
    return ExamineXml(text, length).problem;
}
