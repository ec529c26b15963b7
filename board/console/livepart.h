// A picture as a part of a multipart/x-mixed-replace stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace board::console {

constexpr char liveBoundary[] = "picture";

struct LivePart {
    std::string jpeg;
    std::optional<std::uint32_t> frame;  // number of the camera's frame, where it has one
    std::optional<double> age_ms;
    std::uint32_t width = 0, height = 0;  // before it was scaled

    // Ends with the next part's boundary, so that a viewer need not wait for that part to know
    // that this one is whole; the stream begins with `liveBeginning`.
    std::string text() const;
};

constexpr char liveBeginning[] = "--picture\r\n";

}  // namespace board::console
