// The settings file as Open finds it: whatever it holds, Open comes through, and afterwards there
// is a file that loads and gives the same cameras again.
#include <tinyxml.h>

#include <cstdio>
#include <fstream>

#include "fuzz.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"
#include "plugin/settings.h"
#include "support/folder.h"

namespace {

// What the file holds after a life of the plug-in.
std::string Live() {
    g_Plugin = new CPlugin;
    _OpenParmsOut opened = {};
    _CloseParmsOut closed = {};
    g_Plugin->Open(nullptr, &opened);
    g_Plugin->Close(nullptr, &closed);
    delete g_Plugin;
    g_Plugin = nullptr;
    TiXmlDocument document;
    require(LoadFileProtected(document, szFileName));
    std::ifstream file(szFileName, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const plendix::TemporaryFolder folder;
    {
        std::ofstream file(szFileName, std::ios::binary);
        file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    const std::string saved = Live();
    require(Live() == saved);  // the same cameras
    std::remove("Plendix.xml.bad");
    return 0;
}
