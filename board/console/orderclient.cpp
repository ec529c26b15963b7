#include "board/console/orderclient.h"

#include "board/ctl/orderline.h"
#include "board/daemon/jsonfields.h"

#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <chrono>

namespace board::console {

namespace {

constexpr std::chrono::seconds patience(10);

}  // namespace

std::string refusal(const std::string& error) {
    return JsonFields().add("ok", false).add("error", error).object();
}

bool isGood(const std::string& answer) {
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(answer.c_str(), answer.size());
    return !document.HasParseError() && document.IsObject() && document.HasMember("ok") &&
           document["ok"].IsTrue();
}

std::string OrderClient::ask(const std::string& line) const {
    std::string answer, error;
    if (boardctl::exchange(folder_, line, answer, error, patience))
        return answer;
    return refusal(error);
}

std::optional<std::string> OrderClient::askFor(const std::string& word) const {
    std::string answer = ask(JsonFields().add("order", word).object() + "\n");
    if (!isGood(answer))
        return std::nullopt;
    return answer;
}

std::optional<std::string> OrderClient::session() const {
    rapidjson::Document answer;
    answer.Parse<rapidjson::kParseIterativeFlag>(askFor("session").value_or("{}").c_str());
    if (answer.HasParseError() || !answer.IsObject())
        return std::nullopt;
    const auto session = answer.FindMember("session");
    if (session == answer.MemberEnd())
        return std::nullopt;
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    session->value.Accept(writer);
    return buffer.GetString();
}

std::set<std::string> OrderClient::catalogueNames() const {
    std::set<std::string> names;
    rapidjson::Document catalogue;
    catalogue.Parse<rapidjson::kParseIterativeFlag>(askFor("catalogue").value_or("{}").c_str());
    if (catalogue.HasParseError() || !catalogue.IsObject())
        return names;
    for (const char* kind : {"cameras", "displays", "sound", "inputs"}) {
        const auto list = catalogue.FindMember(kind);
        if (list == catalogue.MemberEnd() || !list->value.IsArray())
            continue;
        for (const rapidjson::Value& entry : list->value.GetArray())
            if (entry.IsObject() && entry.HasMember("name") && entry["name"].IsString())
                names.insert(entry["name"].GetString());
    }
    return names;
}

}  // namespace board::console
