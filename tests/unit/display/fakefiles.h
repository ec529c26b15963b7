// The files of the system image in a folder of the test, and the shell commands that were run.
#pragma once

#include <string>
#include <vector>

class FakeFiles {
  public:
    // Makes an empty folder, in which /userdata and /usr/bin lie until the object goes.
    FakeFiles();
    ~FakeFiles();
    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;

    void write(const std::string& path, const std::string& content);
    bool exists(const std::string& path) const;
    std::string real(const std::string& path) const { return folder + path; }

    // Where a path of the code under test leads; without an object there is no system image.
    static std::string located(const char* path);
    static void command(const char* text);

    std::vector<std::string> commands;

  private:
    std::string folder;
};
