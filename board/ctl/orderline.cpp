#include "board/ctl/orderline.h"

#include "board/daemon/jsonfields.h"
#include "board/daemon/jsonreader.h"
#include "board/daemon/orderwords.h"
#include "board/daemon/unixaddress.h"
#include "board/protocol/wire.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace boardctl {

namespace {

std::string synopsis(const board::wire::OrderWord& word) {
    std::string text = word.name;
    for (const board::OrderField& field : board::orderFields(word)) {
        std::string name = field.name;
        for (char& c : name)
            c = char(std::toupper(c));
        text += field.optional ? " [" + name + "]" : " " + name;
    }
    return text;
}

void addArgument(board::JsonFields& order, const board::OrderField& field,
                 const std::string& text) {
    std::int64_t number = 0;
    // The board has another working directory.
    const bool path =
        field.kind == '@' || (field.kind == '%' && text.find('/') != std::string::npos);
    if (field.kind == '#' && board::parseInteger(text, number))
        order.addRaw(field.name.c_str(), std::to_string(number));
    else if (path && !text.empty())
        order.add(field.name.c_str(), std::filesystem::absolute(text).string());
    else
        order.add(field.name.c_str(), text);
}

std::string plainText(const rapidjson::Value& value) {
    if (value.IsString())
        return value.GetString();
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer.GetString();
}

// One line a value; members of inner objects with their way in front ("camera.delivered").
void addLines(const rapidjson::Value& object, const std::string& prefix, std::string& text) {
    for (const auto& member : object.GetObject()) {
        const std::string name = prefix + member.name.GetString();
        const rapidjson::Value& value = member.value;
        if (name == "ok")
            continue;
        if (value.IsObject()) {
            addLines(value, name + ".", text);
        } else if (value.IsArray()) {
            for (const rapidjson::Value& item : value.GetArray()) {
                text += name + ":";
                if (item.IsObject())
                    for (const auto& inner : item.GetObject())
                        text += std::string(" ") + inner.name.GetString() + "=" +
                                plainText(inner.value);
                else
                    text += " " + plainText(item);
                text += "\n";
            }
        } else {
            text += name + ": " + plainText(value) + "\n";
        }
    }
}

int connectTo(const std::string& path, std::string& error) {
    const board::UnixAddress address(path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::connect(fd, address.get(), address.size()) == 0)
        return fd;
    error = "no virtual board answers at " + path + ": " + std::strerror(errno);
    if (fd >= 0)
        ::close(fd);
    return -1;
}

// Null when it is no object or has no such member.
const rapidjson::Value* findMember(const rapidjson::Value& value, const char* key) {
    if (!value.IsObject())
        return nullptr;
    const auto found = value.FindMember(key);
    return found == value.MemberEnd() ? nullptr : &found->value;
}

bool talk(int fd, const std::string& line, std::string& answer) {
    errno = 0;
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t bytes = ::send(fd, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (bytes < 0 && errno != EINTR)
            return false;
        sent += bytes > 0 ? std::size_t(bytes) : 0;
    }
    char buffer[4096];
    while (answer.find('\n') == std::string::npos) {
        const ssize_t bytes = ::recv(fd, buffer, sizeof buffer, 0);
        if (bytes == 0 || (bytes < 0 && errno != EINTR))
            return false;
        answer.append(buffer, bytes > 0 ? std::size_t(bytes) : 0);
    }
    answer.erase(answer.find('\n'));
    return true;
}

}  // namespace

bool composeOrder(const std::vector<std::string>& words, std::string& line, std::string& error) {
    const board::wire::OrderWord* word = board::findOrderWord(words.front());
    if (word == nullptr) {
        error = "unknown order \"" + words.front() + "\"; boardctl help lists them";
        return false;
    }
    const std::vector<board::OrderField> fields = board::orderFields(*word);
    std::size_t needed = 0;
    for (const board::OrderField& field : fields)
        needed += field.optional ? 0 : 1;
    if (words.size() - 1 < needed || words.size() - 1 > fields.size()) {
        error = "usage: boardctl " + synopsis(*word);
        return false;
    }
    board::JsonFields order;
    order.add("order", words.front());
    for (std::size_t i = 1; i < words.size(); ++i)
        addArgument(order, fields[i - 1], words[i]);
    line = order.object() + "\n";
    return true;
}

bool exchange(const std::string& folder, const std::string& line, std::string& answer,
              std::string& error, std::chrono::seconds patience) {
    int fd = -1;
    try {
        fd = connectTo(folder + "/" + board::wire::orderSocketName, error);
    } catch (const std::exception& failure) {
        error = std::string("no virtual board there: ") + failure.what();
    }
    if (fd < 0)
        return false;
    const timeval limit{patience.count(), 0};  // 0: none
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const bool answered = talk(fd, line, answer);
    const bool late = !answered && errno == EAGAIN;
    ::close(fd);
    if (!answered)
        error = late ? "the board did not answer within " + std::to_string(patience.count()) + " s"
                     : "the board went away without an answer";
    return answered;
}

bool readAnswer(const std::string& answer, std::string& text) {
    rapidjson::Document document;
    document.Parse(answer.c_str());
    const rapidjson::Value* ok = document.HasParseError() ? nullptr : findMember(document, "ok");
    if (ok == nullptr || !ok->IsBool()) {
        text = "the board's answer is not understood: " + answer;
        return false;
    }
    if (ok->GetBool()) {
        addLines(document, "", text);
        if (text.empty())
            text = "done\n";
        return true;
    }
    const rapidjson::Value* error = findMember(document, "error");
    text = error != nullptr && error->IsString() ? error->GetString() : "the board gave no reason";
    return false;
}

std::string helpText() {
    std::string text;
    for (const board::wire::OrderWord& word : board::wire::orderWords) {
        std::string left = synopsis(word);
        left.resize(std::max<std::size_t>(left.size() + 1, 34), ' ');
        text += "  " + left + word.help + "\n";
    }
    return text;
}

}  // namespace boardctl
