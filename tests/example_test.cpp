// The host of the documents, run as a reader would run it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "camera/fleet.h"
#include "support/decoder.h"
#include "support/folder.h"

namespace plendix {

TEST(Example, DrivesTheLibrary) {
    const TemporaryFolder folder;
    const std::string address = "127.34." + std::to_string(getpid() >> 8 & 0xFF) + ".1";
    camera::Fleet fleet({camera::Config{address}});
    fleet.start();
    EXPECT_EQ(std::system((PLENDIX_EXAMPLE " " PLENDIX_LIBRARY " " + address + " >/dev/null").c_str()), 0);
    std::ifstream file("picture-20.jpg", std::ios::binary);
    const camera::test::Bytes picture(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(camera::test::decode("mjpeg", {picture}).size(), 1U);
}

}  // namespace plendix
