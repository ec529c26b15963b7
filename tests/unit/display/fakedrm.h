// A display card played by the test, in the place of libdrm and of the card's device file.
#pragma once

#include <xf86drm.h>
#include <xf86drmMode.h>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

class FakeDrm {
  public:
    struct Property {
        std::uint32_t id;
        std::string name;
        std::uint64_t value;
    };
    struct Connector {
        std::uint32_t id = 0;
        bool connected = true;
        std::uint32_t encoder = 0;
        std::vector<drmModeModeInfo> modes;
        std::vector<Property> properties;
    };
    struct Encoder {
        std::uint32_t id = 0, crtc = 0, possibleCrtcs = 1;
    };
    struct Scanout {  // arguments of the last mode setting
        std::uint32_t crtc = 0, framebuffer = 0, connector = 0;
        drmModeModeInfo mode{};
    };
    struct Framebuffer {
        std::uint32_t width, height, format, pitch, handle, chromaOffset, chromaPitch;
    };

    static FakeDrm& instance();
    static drmModeModeInfo mode(unsigned width, unsigned height, unsigned refresh);

    // Forgets everything; no display is left.
    void reset();
    // One display on one path: connector 33, encoder 32, CRTC 31.
    void plugDisplay(std::vector<drmModeModeInfo> modes);

    // Lets the outstanding flip complete; false when there is none.
    bool completeFlip();
    void loseFlip();                     // the outstanding flip is forgotten, and no event comes
    void setConnected(bool connected);   // of the first connector
    std::vector<std::uint32_t> flips();  // framebuffers in the order of accepted flips
    int calls(const std::string& step);
    // Everything fetched, made, mapped or opened was given back.
    bool allGivenBack(std::string& what);

    // Set before the code under test runs.
    bool present = true;
    bool completesAtOnce = false;  // flips complete as soon as they are queued
    std::uint32_t pitchMultiple = 64;
    std::vector<Connector> connectors;
    std::vector<Encoder> encoders;
    // Whether the nth call (from 1) of a step fails: "open", "resources", "connector",
    // "current", "encoder", "create", "framebuffer", "offset", "mmap", "crtc", "flip", "event".
    std::function<bool(const std::string& step, int nth)> fails;

    // What the code under test did; for the test's thread when no other runs.
    std::map<std::uint32_t, std::uint64_t> setProperties;
    std::map<std::uint32_t, Framebuffer> framebuffers;
    Scanout scanout;
    void* flipUserData = nullptr;
    std::uint32_t flipFlags = 0, flipCrtc = 0;
    std::vector<int> openFlags;

  private:
    friend struct FakeDrmCalls;
    bool failing(const std::string& step, int error);

    std::recursive_mutex lock;
    std::map<std::string, int> counts;
    std::set<int> descriptors;
    std::map<std::uint32_t, std::uint64_t> buffers;  // size by handle
    std::map<void*, std::size_t> mappings;
    std::vector<std::uint32_t> flipped;
    bool flipPending = false;
    int fetched = 0;
    std::uint32_t nextHandle = 1, nextFramebuffer = 101;
};
