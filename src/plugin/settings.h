// The settings file: the last configuration document, kept in the host's current directory.
// Host's thread during Open, worker thread after that.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/reserve.h"

class TiXmlDocument;

extern const char szFileName[];

// TinyXML's LoadFile and SaveFile, with the encoding left to detection.
bool LoadFileProtected(TiXmlDocument& document, const char* filename);
bool SaveFileProtected(const TiXmlDocument& document, const char* filename);

// Remembers what the file holds, so that it is written only when that changes.
class CSettings {
public:
    // Loads the settings file. False, with nothing usable in the document, when there is none or it
    // does not parse; one that does not parse is then kept beside the new one as "Plendix.xml.bad"
    // (".bad.1", ".bad.2", ... while older copies exist), and a warning is logged.
    bool Read(TiXmlDocument& document);

    // Replaces the settings file such that after a power cut or a kill at any instant it is the old
    // document or the new one, whole. Where the file cannot be replaced (it is a mount of its own,
    // its folder is read-only) it is written in place. A symbolic link stays one: its target is
    // replaced. A file that is still the one last read or written, and holds this very text, is left
    // alone. A failure leaves the old file and is not reported; false then.
    bool Write(const TiXmlDocument& document);

private:
    bool Holds(const std::string& text) const;
    void Remember(const std::string& text, const struct stat& status);

    CDescriptorReserve m_Reserve;  // for the time when the process has no descriptor left
    std::string m_sText;           // last read or written; empty when that is not known
    struct stat m_Status = {};     // of the file then
};
