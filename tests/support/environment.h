// What the tests take from outside: how patient to be, how long to run, where the programs lie.
#pragma once

#include <chrono>
#include <string>

namespace support {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// TEST_TIME_FACTOR stretches every deadline; sanitizer builds are four times as patient by default.
double timeFactor();
Milliseconds scaled(Milliseconds patience);

// TEST_LONG=1: the runs that take minutes.
bool longRun();

// What the application under test was built with: "address", "thread", or "" for what ships.
// TEST_SANITIZE says so for an application that TEST_APPLICATION names.
std::string sanitizer();
// A build with sanitizers runs the application several times slower: no figures of speed then.
bool sanitizedBuild();

// Programs under test and the board's, as built; TEST_APPLICATION and TEST_BOARD_DAEMON in the
// environment name others.
std::string applicationPath();
std::string daemonPath();
std::string preloadPath();
std::string consolePath();
std::string sourcePath(const std::string& relative);

// A new empty folder under the system's place for temporary files.
std::string makeTemporaryFolder(const std::string& prefix);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

}  // namespace support
