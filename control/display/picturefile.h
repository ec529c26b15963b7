// Raw picture files of the system image: pixels from the first byte to the last, no header.
#pragma once

#include "control/task/uniquefd.h"

#include <cstddef>
#include <cstdint>
#include <string>

class PictureFile {
  public:
    explicit PictureFile(std::string path);

    // In bytes; -1 when the file cannot be opened.
    std::int64_t size() const { return bytes; }
    // Fills `out` from a file of exactly `expected` bytes. Else false, one line on standard error,
    // and nothing written unless the file shrank meanwhile.
    bool read(unsigned char* out, std::size_t expected);

  private:
    std::string path;
    UniqueFd file;
    std::int64_t bytes = -1;
    int openError = 0;
};
