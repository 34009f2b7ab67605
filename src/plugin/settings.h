// The settings file: the last configuration document, kept in the host's current directory.
// Host's thread during Open, worker thread after that.
#pragma once

class CDescriptorReserve;
class TiXmlDocument;

extern const char szFileName[];

// TinyXML's LoadFile and SaveFile, with the encoding left to detection.
bool LoadFileProtected(TiXmlDocument& document, const char* filename);
bool SaveFileProtected(const TiXmlDocument& document, const char* filename);

// Loads the settings file. False, with nothing usable in the document, when there is none or it
// does not parse; one that does not parse is then kept beside the new one as "Plendix.xml.bad"
// (".bad.1", ".bad.2", ... while older copies exist), and a warning is logged.
bool ReadSettings(TiXmlDocument& document, CDescriptorReserve& reserve);

// Replaces the settings file such that after a power cut or a kill at any instant it is the old
// document or the new one, whole. Where the file cannot be replaced (it is a mount of its own, its
// folder is read-only) it is written in place. A symbolic link stays one: its target is replaced.
// A failure leaves the old file and is not reported; false then.
bool WriteSettings(const TiXmlDocument& document, CDescriptorReserve& reserve);
