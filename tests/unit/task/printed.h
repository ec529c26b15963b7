// What a piece of code printed on standard output.
#pragma once

#include <gtest/gtest.h>
#include <iostream>
#include <string>

// A failure that is noted meanwhile goes to standard output too, and is printed after all.
template <typename Action>
std::string printedBy(const Action& action) {
    testing::internal::CaptureStdout();
    action();
    std::string printed = testing::internal::GetCapturedStdout();
    if (testing::Test::HasFailure()) {
        std::cout << printed;
    }
    return printed;
}
