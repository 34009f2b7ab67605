#include <gtest/gtest.h>

#include <cstdio>

#include "camera/wire/privilege.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (!plendix::camera::enter_private_network())
        std::fprintf(stderr, "port 69 is not available: run as root or inside 'unshare -rn'\n");
    return RUN_ALL_TESTS();
}
