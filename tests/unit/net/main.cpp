#include <gtest/gtest.h>

#include <iostream>

#include "net/private_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string error;
    if (!meridian::rtps::net::test::enter_private_network(error)) {
        std::cerr << "unit_net: " << error << std::endl;
        return 1;
    }
    return RUN_ALL_TESTS();
}
