// Faults on order: the Nth call of an ioctl from now on fails with an errno.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace board {

class Faults {
  public:
    // `ioctlName` as in the kernel's headers ("VIDIOC_DQBUF", "DRM_IOCTL_MODE_PAGE_FLIP"). `nth`
    // counts from 1; `count` calls fail from there on (0: all). False for an unknown name.
    bool add(const std::string& ioctlName, unsigned nth, int error, unsigned count);
    void clear();
    // 0, or the positive errno that this call shall fail with.
    int check(std::uint32_t request);

  private:
    struct Rule {
        std::uint32_t request;
        unsigned skip;
        unsigned remaining;  // 0: for ever
        bool endless;
        int error;
    };
    std::vector<Rule> rules_;
};

// Number of an ioctl by name; 0 when unknown.
std::uint32_t ioctlNumber(const std::string& name);

}  // namespace board
