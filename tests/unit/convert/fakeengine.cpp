#include "tests/unit/convert/fakeengine.h"

FakeEngine& FakeEngine::instance() {
    static FakeEngine engine;
    return engine;
}

RockchipRga::RockchipRga() = default;
RockchipRga::~RockchipRga() = default;

int RockchipRga::RkRgaInit() {
    ++FakeEngine::instance().initialised;
    return 0;
}

void RockchipRga::RkRgaDeInit() {
    ++FakeEngine::instance().released;
}

int RockchipRga::RkRgaBlit(rga_info* src, rga_info* dst, rga_info* src1) {
    FakeEngine& engine = FakeEngine::instance();
    engine.blits.push_back({*src, *dst, src1 != nullptr});
    return engine.answer ? engine.answer(engine.blits.back()) : 0;
}
