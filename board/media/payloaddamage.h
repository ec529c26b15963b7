// What may be wrong with a camera's payload.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace board {

enum class PayloadFault {
    truncate,     // the end is missing
    flipBits,     // single bits are wrong
    noHuffman,    // MJPG: the code tables are missing, as with many webcams
    bytesBefore,  // something stands before the picture
    bytesAfter,   // something stands behind it
    wrongSize,    // MJPG: the header says another size
    empty,        // no byte at all
    oversized,    // as long as the buffer: filled up with what decoders skip
    errorFlag,    // the kernel's mark for a damaged buffer; the payload is whole
};

constexpr unsigned payloadFaultCount = 9;

// "truncate", "flip-bits", "no-huffman", "bytes-before", "bytes-after", "wrong-size", "empty",
// "oversized", "error-flag".
std::optional<PayloadFault> payloadFaultNamed(const std::string& name);
std::string payloadFaultNames();  // separated by ", "

// Whether this format's payloads can have the fault.
bool canHave(std::uint32_t fourcc, PayloadFault fault);

// Damages a payload that lies in a buffer of `room` bytes; it stays within. errorFlag changes
// nothing.
void damage(PayloadFault fault, std::uint32_t fourcc, std::size_t room, std::mt19937& random,
            std::vector<std::uint8_t>& payload);

}  // namespace board
