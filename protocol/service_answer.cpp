#include "protocol/service_answer.h"

namespace halvora {
namespace {

// Only an object or an array is accepted at the top level, as the platform's parser does.
std::optional<Json> parseDocument(const std::string& body, OptionalError& error) {
    try {
        Json parsed = Json::parse(body);
        if (parsed.is_object() || parsed.is_array()) return parsed;
        error = HLVError::inDomain("json", 3840, "The answer is not a JSON object or array.");
    } catch (const Json::exception& e) {
        error = HLVError::inDomain("json", e.id, e.what());
    }
    return std::nullopt;
}

}  // namespace

ServiceAnswer interpretAnswer(long status, const std::string& body) {
    ServiceAnswer result;
    if (status == 204) return result;
    result.json = parseDocument(body, result.error);
    if (!result.json) return result;
    if (status >= 400) result.error = HLVError(stringField(*result.json, "message").value_or("Request failed"), status);
    return result;
}

}  // namespace halvora
