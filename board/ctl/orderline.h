// A command line as an order, its exchange with the board, its answer as text.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace boardctl {

// False with one line in `error` when the order is unknown or its arguments do not fit.
bool composeOrder(const std::vector<std::string>& words, std::string& line, std::string& error);

// Sends the line and waits for the answer, however long the order takes if `patience` is 0. False
// when there is no board in `folder`, it ended meanwhile or nothing came for that long.
bool exchange(const std::string& folder, const std::string& line, std::string& answer,
              std::string& error, std::chrono::seconds patience = std::chrono::seconds(0));

// The answer's members as lines, or the error's text. True for a good answer.
bool readAnswer(const std::string& answer, std::string& text);

std::string helpText();  // one line an order

}  // namespace boardctl
