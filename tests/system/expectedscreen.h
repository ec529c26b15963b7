// What the screen must look like while a picture of the system image stands on it, made without
// the application's code: another drawing, another scaler, and a measure of likeness.
#pragma once

#include "tests/support/screenshot.h"

#include <string>

// A raw picture file with a white text on it ("" for none) as a display of that size shows it.
// Hues follow the engine's codes: the bytes count as blue, green, red when the luma is made, and
// the two chroma values change places.
support::Rgb expectedScreen(const std::string& pictureFile, const std::string& text, double scale,
                            std::uint32_t width, std::uint32_t height);

// Structural similarity of the luma of two pictures of one size; 1 when equal. Only of the lines
// from `firstLine` on.
double likeness(const support::Rgb& seen, const support::Rgb& expected,
                std::uint32_t firstLine = 0);

// The mean distance of their colour values, 0 to 255.
double distance(const support::Rgb& seen, const support::Rgb& expected);
