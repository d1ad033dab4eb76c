#pragma once
// Errors are values handed to completions; nothing is thrown across the library's API.

#include <optional>
#include <string>
#include <string_view>

namespace halvora {

class HLVError {
public:
    static constexpr std::string_view kDomain = "Halvora";

    // An error of the library's own domain.
    HLVError(std::string message, long code);
    // An error passed on from elsewhere (the HTTP client, the JSON parser) in its own domain.
    static HLVError inDomain(std::string domain, long code, std::string message);

    const std::string& domain() const { return domain_; }
    long code() const { return code_; }
    const std::string& localizedDescription() const { return message_; }
    // One line for logs: Error Domain=Halvora Code=404 "Session not found"
    std::string description() const;

    bool operator==(const HLVError&) const = default;

private:
    HLVError(std::string domain, long code, std::string message);

    std::string domain_;
    long code_ = 0;
    std::string message_;
};

using OptionalError = std::optional<HLVError>;

}  // namespace halvora
