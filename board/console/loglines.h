// The lines that the application can print, as docs/log-lines.md explains them.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace board::console {

struct LogLine {
    std::string pattern;  // as printed, with U+2026 for what varies
    std::string kind;     // one of the document's kinds
    std::string meaning, todo;
};

// Not changed once made: any number of threads may ask.
class LogLines {
  public:
    // Throws std::runtime_error, one line with `name` and the line's number, for a text without
    // entries, rows of another shape, unknown kinds and patterns that stand there twice.
    LogLines(const std::string& document, const std::string& name);
    // Throws as above, and for a file that cannot be read.
    static LogLines fromFile(const std::string& path);

    const std::vector<LogLine>& entries() const { return entries_; }
    // Index of the entry that a line (without its end) belongs to: of those that match, the one
    // with the most literal characters. Costs time in proportion to the line's length.
    std::optional<std::size_t> find(std::string_view line) const;
    // Every entry that matches, the most literal one first.
    std::vector<std::size_t> findAll(std::string_view line) const;
    // Bytes of an entry's pattern that stand for themselves.
    std::size_t literalBytes(std::size_t entry) const;

  private:
    // The literal pieces around the places that vary, of which there is one fewer.
    using Pieces = std::vector<std::string>;

    static bool matches(const Pieces& pieces, std::string_view line);
    void prepare();

    std::vector<LogLine> entries_;
    std::vector<Pieces> pieces_;  // of each entry
    // For each first byte of a line the entries that it may belong to, the most literal one first.
    std::array<std::vector<std::size_t>, 256> candidates_;
};

}  // namespace board::console
