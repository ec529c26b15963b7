#include "rga/RockchipRga.h"

#include "engine/rga/blit.h"
#include "engine/rga/surface.h"

namespace {

int answer(int error) {
    if (error == 0) {
        return 0;
    }
    errno = error;
    return -error;
}

}  // namespace

RockchipRga::RockchipRga() = default;
RockchipRga::~RockchipRga() = default;

int RockchipRga::RkRgaInit() {
    return 0;
}

void RockchipRga::RkRgaDeInit() {}

void RockchipRga::RkRgaGetContext(void** ctx) {
    if (ctx != nullptr) {
        *ctx = this;
    }
}

int RockchipRga::RkRgaFlush() {
    return 0;
}

bool RockchipRga::RkRgaIsReady() {
    return true;
}

int RockchipRga::RkRgaBlit(rga_info* src, rga_info* dst, rga_info* src1) {
    if (src == nullptr || dst == nullptr) {
        return answer(EINVAL);
    }
    if (src1 != nullptr || src->blend != 0 || dst->blend != 0) {
        return answer(ENOTSUP);
    }
    rga::Surface source;
    rga::Surface destination;
    if (rga::makeSurface(*src, source) != 0 || rga::makeSurface(*dst, destination) != 0) {
        return answer(EINVAL);
    }
    // Programs set it on either picture.
    const auto transform = rga::makeTransform(src->rotation != 0 ? src->rotation : dst->rotation);
    return answer(transform ? rga::blit(source, destination, *transform) : EINVAL);
}

int RockchipRga::RkRgaCollorFill(rga_info* dst) {
    rga::Surface destination;
    if (dst == nullptr || rga::makeSurface(*dst, destination) != 0) {
        return answer(EINVAL);
    }
    return answer(rga::fill(destination, static_cast<unsigned>(dst->color)));
}
