// What is on screen, as parts of a live view.
#pragma once

#include "board/console/i420picture.h"
#include "board/console/mappedmemory.h"
#include "board/console/viewsocket.h"

#include <string>

namespace board::console {

// Used by one thread.
class ScreenPictures {
  public:
    // The part for a packet of the screen's view; empty when there is none: a packet that is not
    // understood, or a picture that was drawn over meanwhile.
    std::string part(const ViewPacket& packet);
    void forget();  // other frame buffers come next

  private:
    bool scale(const wire::ViewPicture& picture, const std::vector<int>& descriptors);
    bool scaleNv12(const wire::ViewPicture& picture, const std::uint8_t* luma,
                   const std::uint8_t* chroma);
    bool scaleXrgb(const wire::ViewPicture& picture, const std::uint8_t* pixels);
    void paintBlack();

    MappedMemory memory_;
    I420Picture small_;
    std::vector<std::uint8_t> scratch_;
};

}  // namespace board::console
