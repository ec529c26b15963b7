#include "board/daemon/sound/pcmhandle.h"

#include "board/daemon/sound/pluggedcard.h"

#include <sys/mman.h>

#include <cerrno>
#include <utility>

namespace board {

PcmHandle::PcmHandle(std::shared_ptr<PluggedCard> card, bool playback)
    : card_(std::move(card)),
      space_(card_->limits(playback)),
      stream_(
          card_->parts(playback, space_, [this](std::uint32_t bits) { card_->tell(slot, bits); }),
          playback) {
    stream_.asleep = card_->asleep();
}

PcmHandle::~PcmHandle() {
    card_->closed(*this);
}

bool PcmHandle::knows(std::uint32_t request) const {
    return table().count(request) != 0;
}

int PcmHandle::unknownIoctlError() const {
    return card_->gone() ? ENODEV : ENOTTY;
}

int PcmHandle::ioctl(IoctlCall& call) {
    if (card_->gone())
        return -ENODEV;
    const auto found = table().find(call.request);
    return found == table().end() ? -ENOTTY : (this->*found->second)(call);
}

// Only the data: status and control pages would need the pointers to be moved without a call.
Mapping PcmHandle::map(std::uint64_t offset, std::uint64_t length, std::uint32_t protection) {
    Mapping mapping;
    if (offset >= SNDRV_PCM_MMAP_OFFSET_STATUS_OLD)
        mapping.error = -ENXIO;
    else if (card_->gone())
        mapping.error = -ENODEV;
    else if (stream_.ring() == nullptr)
        mapping.error = -EBADFD;
    else if (offset != 0 || length == 0 || length > stream_.ring()->mappedBytes() ||
             (protection & (PROT_READ | PROT_WRITE)) == 0)
        mapping.error = -EINVAL;
    if (mapping.error != 0)
        return mapping;
    mapping.memfd = stream_.ring()->memfd();
    stream_.mapped(1);
    return mapping;
}

void PcmHandle::unmapped(std::uint64_t /*offset*/, std::uint64_t /*length*/) {
    stream_.mapped(-1);
}

}  // namespace board
