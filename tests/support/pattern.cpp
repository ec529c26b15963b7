#include "tests/support/pattern.h"

#include <regex>

namespace support {

struct Pattern::Form {
    std::regex regex;
};

namespace {

std::vector<std::string> groupsOf(const std::smatch& match) {
    std::vector<std::string> groups;
    for (const auto& group : match) {
        groups.push_back(group.str());
    }
    return groups;
}

}  // namespace

Pattern::Pattern(const std::string& form) : form_(new Form{std::regex(form)}) {}

Pattern::~Pattern() = default;

Pattern::Pattern(Pattern&& other) noexcept = default;

Pattern& Pattern::operator=(Pattern&& other) noexcept = default;

std::vector<std::string> Pattern::search(const std::string& text) const {
    std::smatch match;
    std::regex_search(text, match, form_->regex);
    return groupsOf(match);
}

std::vector<std::vector<std::string>> Pattern::searchAll(const std::string& text) const {
    std::vector<std::vector<std::string>> found;
    for (std::sregex_iterator at(text.begin(), text.end(), form_->regex), end; at != end; ++at) {
        found.push_back(groupsOf(*at));
    }
    return found;
}

bool Pattern::isIn(const std::string& text) const {
    return std::regex_search(text, form_->regex);
}

bool Pattern::matchesWhole(const std::string& text) const {
    return std::regex_match(text, form_->regex);
}

std::string Pattern::replaceAll(const std::string& text, const std::string& replacement) const {
    return std::regex_replace(text, form_->regex, replacement);
}

}  // namespace support
