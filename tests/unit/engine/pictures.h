// Pictures in the engine's layouts, read and written sample by sample without the engine's help.
#pragma once

#include <rga/RockchipRga.h>
#include <rga/rga.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace pictures {

struct Code {
    int code;
    const char* name;
};

extern const std::vector<Code> sources;
extern const std::vector<Code> destinations;

bool isYuv(int code);
// Chroma lines are half the picture's.
bool halvesChromaLines(int code);

// Y, U, V or R, G, B (of RGB_565: 5, 6 and 5 bits).
struct Sample {
    int a = 0, b = 0, c = 0;
    bool operator==(const Sample& other) const {
        return a == other.a && b == other.b && c == other.c;
    }
};

// Memory that ends at a page that must not be touched.
class Guarded {
  public:
    explicit Guarded(std::size_t bytes);
    ~Guarded();
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    std::uint8_t* data() const { return data_; }
    std::size_t size() const { return size_; }

  private:
    std::size_t size_;
    std::size_t mapped_;
    void* mapping_;
    std::uint8_t* data_;
};

class Picture {
  public:
    Picture(int code, int wstride, int hstride);

    int code() const { return code_; }
    int width() const { return wstride_; }
    int height() const { return hstride_; }
    Guarded& memory() { return memory_; }

    // Of a 4:2:x picture the chroma under (x, y), which neighbours share.
    Sample at(int x, int y) const;
    void put(int x, int y, const Sample& sample);
    void fill(const Sample& sample);
    void fillRandom(unsigned seed);
    void fillBytes(std::uint8_t value);

    // The whole picture, or a rectangle of it.
    rga_info_t info();
    rga_info_t info(int x, int y, int width, int height);

  private:
    struct Places {
        std::size_t a, b, c;
    };
    Places places(int x, int y) const;

    int code_, wstride_, hstride_;
    Guarded memory_;
};

// Pure red, green and blue as each layout says it.
Sample red(int code);
Sample green(int code);
Sample blue(int code);

std::string describe(const Sample& sample);
// Largest difference of a channel.
int distance(const Sample& one, const Sample& other);

}  // namespace pictures
