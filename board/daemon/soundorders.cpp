#include "board/daemon/soundorders.h"

namespace board {

namespace {

JsonFields streamFigures(const SoundFigures& figures) {
    JsonFields fields;
    fields.add("open", figures.open).add("state", figures.state).add("format", figures.format);
    fields.add("rate", figures.rate_Hz).add("channels", figures.channels);
    fields.add("periodFrames", figures.periodFrames).add("bufferFrames", figures.bufferFrames);
    fields.add("frames", figures.frames).add("periods", figures.periods);
    fields.add("starts", figures.starts).add("xruns", figures.xruns);
    return fields.add("missing", figures.missing);
}

}  // namespace

void addSoundOrders(Orders& /*orders*/, Rig& /*rig*/) {}

JsonFields soundFigures(const SoundCard& card) {
    JsonFields fields;
    if (!card.description().playback.settings.empty())
        fields.add("playback", streamFigures(card.figures(true)));
    if (!card.description().capture.settings.empty())
        fields.add("capture", streamFigures(card.figures(false)));
    return fields.add("openHandles", card.openHandles());
}

}  // namespace board
