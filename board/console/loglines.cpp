#include "board/console/loglines.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <numeric>
#include <set>
#include <sstream>
#include <stdexcept>

namespace board::console {

namespace {

constexpr std::string_view varying = "\xE2\x80\xA6";  // U+2026
constexpr std::size_t columns = 4;
const std::vector<std::string> lineTable = {"line", "kind", "meaning", "what to do"};
const std::vector<std::string> kindTable = {"kind", "what it is"};

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string_view::npos) {
        return {};
    }
    return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

// The cells of a table's row; a bar that belongs to a cell is written "\|".
std::vector<std::string> cellsOf(std::string_view row) {
    std::vector<std::string> cells;
    std::string cell;
    row = trimmed(row).substr(1);
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (row[i] == '\\' && i + 1 < row.size() && row[i + 1] == '|') {
            cell += row[++i];
        } else if (row[i] == '|') {
            cells.emplace_back(trimmed(cell));
            cell.clear();
        } else {
            cell += row[i];
        }
    }
    if (!trimmed(cell).empty()) {
        cells.emplace_back(trimmed(cell));
    }
    return cells;
}

bool isRow(std::string_view text) {
    text = trimmed(text);
    return !text.empty() && text.front() == '|';
}

bool isRule(std::string_view text) {
    return text.find_first_not_of("|-: \t\r") == std::string_view::npos;
}

bool isNumber(std::string_view text) {
    if (!text.empty() && text.front() == '-') {
        text.remove_prefix(1);
    }
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::vector<std::string> splitPattern(std::string_view pattern) {
    std::vector<std::string> pieces;
    for (;;) {
        const std::size_t at = pattern.find(varying);
        pieces.emplace_back(pattern.substr(0, at));
        if (at == std::string_view::npos) {
            return pieces;
        }
        pattern.remove_prefix(at + varying.size());
    }
}

// Reads the tables of a document, line by line.
class Reader {
  public:
    Reader(const std::string& document, std::string name)
        : document_(document), name_(std::move(name)) {}

    std::vector<LogLine> read() {
        std::string text;
        while (std::getline(document_, text)) {
            ++number_;
            if (!isRow(text)) {
                table_.clear();
            } else if (table_.empty()) {
                table_ = cellsOf(text);
            } else if (!isRule(text)) {
                takeRow(cellsOf(text));
            }
        }
        if (entries_.empty()) {
            throw std::runtime_error(name_ + ": no table of log lines in it");
        }
        return std::move(entries_);
    }

  private:
    [[noreturn]] void refuse(const std::string& what) const {
        throw std::runtime_error(name_ + ":" + std::to_string(number_) + ": " + what);
    }

    void takeRow(const std::vector<std::string>& cells) {
        if (table_ == kindTable && !cells.empty()) {
            kinds_.insert(cells.front());
        } else if (table_ == lineTable) {
            takeEntry(cells);
        }
    }

    void takeEntry(const std::vector<std::string>& cells) {
        if (cells.size() != columns) {
            refuse("a row has " + std::to_string(cells.size()) + " cells, a log line takes " +
                   std::to_string(columns));
        }
        const std::string& quoted = cells[0];
        if (quoted.size() < 3 || quoted.front() != '`' || quoted.back() != '`') {
            refuse("the line must stand in backticks: " + quoted);
        }
        LogLine entry{quoted.substr(1, quoted.size() - 2), cells[1], cells[2], cells[3]};
        if (entry.pattern.find('`') != std::string::npos) {
            refuse("a backtick inside a line: " + quoted);
        }
        if (kinds_.count(entry.kind) == 0) {
            refuse("unknown kind '" + entry.kind + "'");
        }
        if (!patterns_.insert(entry.pattern).second) {
            refuse("stands here twice: " + quoted);
        }
        entries_.push_back(std::move(entry));
    }

    std::istringstream document_;
    const std::string name_;
    std::size_t number_ = 0;
    std::vector<std::string> table_;  // the head of the table that the row belongs to
    std::set<std::string> kinds_;
    std::set<std::string> patterns_;
    std::vector<LogLine> entries_;
};

}  // namespace

LogLines::LogLines(const std::string& document, const std::string& name)
    : entries_(Reader(document, name).read()) {
    prepare();
}

LogLines LogLines::fromFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    char block[4096];
    while (file.read(block, sizeof block) || file.gcount() > 0) {
        text.append(block, static_cast<std::size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad()) {
        throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
    }
    return {text, path};
}

void LogLines::prepare() {
    std::vector<std::size_t> order(entries_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    for (const LogLine& entry : entries_) {
        pieces_.push_back(splitPattern(entry.pattern));
    }
    std::stable_sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
        return literalBytes(a) > literalBytes(b);
    });
    for (const std::size_t entry : order) {
        const std::string& head = pieces_[entry].front();
        if (!head.empty()) {
            candidates_[static_cast<unsigned char>(head.front())].push_back(entry);
            continue;
        }
        for (std::vector<std::size_t>& list : candidates_) {
            list.push_back(entry);
        }
    }
}

std::size_t LogLines::literalBytes(std::size_t entry) const {
    std::size_t bytes = 0;
    for (const std::string& piece : pieces_[entry]) {
        bytes += piece.size();
    }
    return bytes;
}

bool LogLines::matches(const Pieces& pieces, std::string_view line) {
    const std::string& head = pieces.front();
    const std::string& tail = pieces.back();
    if (pieces.size() == 1) {
        return line == head;
    }
    // Nothing but what varies: a number alone, else the entry would match every line.
    if (pieces.size() == 2 && head.empty() && tail.empty()) {
        return isNumber(line);
    }
    if (line.size() < head.size() + tail.size() || line.substr(0, head.size()) != head ||
        line.substr(line.size() - tail.size()) != tail) {
        return false;
    }
    line = line.substr(head.size(), line.size() - head.size() - tail.size());
    // The earliest place of each piece leaves the most for those behind it: no way back is needed.
    for (std::size_t i = 1; i + 1 < pieces.size(); ++i) {
        const std::size_t at = line.find(pieces[i]);
        if (at == std::string_view::npos) {
            return false;
        }
        line.remove_prefix(at + pieces[i].size());
    }
    return true;
}

std::optional<std::size_t> LogLines::find(std::string_view line) const {
    if (line.empty()) {
        return std::nullopt;
    }
    const auto& list = candidates_[static_cast<unsigned char>(line.front())];
    const auto found = std::find_if(
        list.begin(), list.end(), [&](std::size_t entry) { return matches(pieces_[entry], line); });
    return found != list.end() ? std::optional<std::size_t>(*found) : std::nullopt;
}

std::vector<std::size_t> LogLines::findAll(std::string_view line) const {
    std::vector<std::size_t> found;
    if (!line.empty()) {
        for (const std::size_t entry : candidates_[static_cast<unsigned char>(line.front())]) {
            if (matches(pieces_[entry], line)) {
                found.push_back(entry);
            }
        }
    }
    return found;
}

}  // namespace board::console
