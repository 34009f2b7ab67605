#include "platform/xml_guard.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/utf8.h"

namespace {

// TinyXML takes as many bytes for a character as its first one announces, and may so step over the
// end of a text by three.
constexpr std::size_t SpareNuls = 4;

// TinyXML's own reading of everything that does not nest, so that no text can look different to us.
struct Reader : TiXmlDocument {
    using TiXmlBase::ReadName;
    using TiXmlBase::SkipWhiteSpace;
    using TiXmlNode::Identify;
};

// Follows one text tag by tag, with a list of the open elements where TinyXML would recurse.
class Scanner {
public:
    Scanner(const std::string& text, TiXmlEncoding encoding, const XmlLimits& limits)
        : m_Limits(limits), m_nLength(std::strlen(text.c_str())), m_Encoding(encoding) {
        m_sText.reserve(m_nLength + SpareNuls);
        m_sText.assign(text, 0, m_nLength).append(SpareNuls, '\0');
        m_p = m_sText.data();
    }

    XmlVerdict Scan() {
        if (m_Encoding == TIXML_ENCODING_UNKNOWN && At("\xEF\xBB\xBF")) m_Encoding = TIXML_ENCODING_UTF8;
        SkipBlanks();
        while (HasMore())
            Item();
        if (m_pProblem == nullptr) return {m_nLength, nullptr, m_Encoding};
        return {static_cast<std::size_t>(m_pStop - m_sText.data()), m_pProblem, m_Encoding};
    }

private:
    // TinyXML goes on while there is a pointer and a character; a null pointer is its parse error.
    bool HasMore() const { return m_p != nullptr && *m_p != '\0'; }
    bool At(const char* token) const { return std::strncmp(m_p, token, std::strlen(token)) == 0; }
    void SkipBlanks() { m_p = Reader::SkipWhiteSpace(m_p, m_Encoding); }
    void Fail() { m_p = nullptr; }

    void Stop(const char* where, const char* problem) {
        m_pStop = where;
        m_pProblem = problem;
        Fail();
    }

    void Item() {
        if (*m_p != '<')
            Text();
        else if (!m_Open.empty() && At("</"))
            EndTag();
        else
            Node();
        SkipBlanks();
    }

    void Text() {
        if (m_Open.empty()) return Fail();  // behind the root: no error, but the end
        TiXmlText text("");
        Parse(text);
    }

    void Node() {
        const std::unique_ptr<TiXmlNode> node(m_Reader.Identify(m_p, m_Encoding));
        if (!node) return Fail();
        if (node->ToElement() != nullptr) return StartTag();
        Parse(*node);
        const TiXmlDeclaration* const declaration = node->ToDeclaration();
        if (declaration != nullptr && m_Open.empty()) Declared(declaration->Encoding());
    }

    // Where this fails at the end of the text, TinyXML may have stepped over that end.
    void Parse(TiXmlBase& part) {
        m_p = part.Parse(m_p, nullptr, m_Encoding);
        if (m_p == nullptr && m_Encoding == TIXML_ENCODING_UTF8 &&
            EndsInsideUtf8Sequence(m_sText.data(), m_nLength))
            Stop(m_sText.data() + m_nLength, "incomplete character");
    }

    // The first declaration in front of the root settles an open question.
    void Declared(const char* encoding) {
        if (m_Encoding != TIXML_ENCODING_UNKNOWN) return;
        const bool utf8 = *encoding == '\0' || strncasecmp(encoding, "UTF-8", 5) == 0 ||
                          strncasecmp(encoding, "UTF8", 4) == 0;
        m_Encoding = utf8 ? TIXML_ENCODING_UTF8 : TIXML_ENCODING_LEGACY;
    }

    void StartTag() {
        const char* const tag = m_p;
        if (m_Open.size() >= m_Limits.nesting) return Stop(tag, "too many nested elements");
        ++m_p;
        SkipBlanks();
        std::string name;
        m_p = Reader::ReadName(m_p, &name, m_Encoding);
        m_Attributes.clear();
        while (HasMore()) {
            SkipBlanks();
            if (!HasMore()) return Fail();
            if (*m_p == '/') return EndEmptyTag();
            if (*m_p == '>') {
                ++m_p;
                m_Open.push_back(name);
                return;
            }
            Attribute(tag);
        }
    }

    void EndEmptyTag() {
        if (m_p[1] != '>') return Fail();
        m_p += 2;
    }

    void Attribute(const char* tag) {
        TiXmlAttribute attribute;
        Parse(attribute);
        if (!HasMore()) return;
        if (std::find(m_Attributes.begin(), m_Attributes.end(), attribute.NameTStr()) != m_Attributes.end())
            return Fail();
        m_Attributes.push_back(attribute.NameTStr());
        if (m_Attributes.size() > m_Limits.attributes) Stop(tag, "too many attributes");
    }

    void EndTag() {
        m_p += 2;
        if (!At(m_Open.back().c_str())) return Fail();
        m_p += m_Open.back().size();
        SkipBlanks();
        if (!HasMore() || *m_p != '>') return Fail();
        ++m_p;
        m_Open.pop_back();
    }

    const XmlLimits m_Limits;
    const std::size_t m_nLength;
    TiXmlEncoding m_Encoding;
    std::string m_sText;
    const char* m_p = nullptr;
    const char* m_pStop = nullptr;
    const char* m_pProblem = nullptr;
    std::vector<std::string> m_Open;        // names, from the root on
    std::vector<std::string> m_Attributes;  // names on the element at hand
    Reader m_Reader;
};

}  // namespace

XmlVerdict ExamineXml(const std::string& text, TiXmlEncoding encoding, const XmlLimits& limits) {
    return Scanner(text, encoding, limits).Scan();
}
