// What a piece of code printed.
#pragma once

#include <gtest/gtest.h>

#include <string>

struct Output {
    std::string out, err;
};

template <typename Action>
Output outputOf(const Action& action) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    action();
    Output output;
    output.out = testing::internal::GetCapturedStdout();
    output.err = testing::internal::GetCapturedStderr();
    return output;
}
