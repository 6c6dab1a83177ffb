#include <gtest/gtest.h>

#include <iostream>

#include "common/private_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string error;
    if (!meridian::test::enter_private_network(error)) {
        std::cerr << argv[0] << ": " << error << std::endl;
        return 1;
    }
    return RUN_ALL_TESTS();
}
