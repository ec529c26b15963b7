// What a piece of code printed on standard output.
#pragma once

#include <gtest/gtest.h>
#include <string>

template <typename Action>
std::string printedBy(const Action& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}
