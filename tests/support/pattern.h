// Regular expressions (ECMAScript's) for tests. The standard library's take seconds to compile in
// every file that names them, so that only one does.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace support {

class Pattern {
  public:
    // Throws std::regex_error.
    explicit Pattern(const std::string& form);
    ~Pattern();
    Pattern(Pattern&& other) noexcept;
    Pattern& operator=(Pattern&& other) noexcept;

    // The first place that matches ([0]) and its groups; empty when there is none.
    std::vector<std::string> search(const std::string& text) const;
    // The same for every place.
    std::vector<std::vector<std::string>> searchAll(const std::string& text) const;
    bool isIn(const std::string& text) const;
    bool matchesWhole(const std::string& text) const;
    // Every place replaced; `replacement` may name groups ("$1").
    std::string replaceAll(const std::string& text, const std::string& replacement) const;

  private:
    struct Form;
    std::unique_ptr<Form> form_;
};

}  // namespace support
