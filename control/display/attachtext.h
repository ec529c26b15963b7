// A stored picture with a line of text on it.
#pragma once

#include <string>

class AttachText {
  public:
    // All the work is done here. `path`: a raw file of width * height pixels of three bytes, which
    // go to `output` as they stand; blue, green and red are the first, second and third byte of the
    // text's pixels. The text begins at (x, y), its lower left corner. `output` takes width *
    // height * 3 bytes; it stays untouched, and one line says why, when the file has another size
    // or the text cannot be drawn.
    AttachText(const std::string& path, const std::string& text, int width, int height, int x,
               int y, int blue, int green, int red, double fontScale, int thickness,
               unsigned char* output);
};
