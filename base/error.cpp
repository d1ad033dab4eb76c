#include "halvora/error.h"

namespace halvora {

HLVError::HLVError(std::string message, long code)
    : HLVError(std::string(kDomain), code, std::move(message)) {}

HLVError::HLVError(std::string domain, long code, std::string message)
    : domain_(std::move(domain)), code_(code), message_(std::move(message)) {}

HLVError HLVError::inDomain(std::string domain, long code, std::string message) {
    return HLVError(std::move(domain), code, std::move(message));
}

std::string HLVError::description() const {
    return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" + message_ + "\"";
}

}  // namespace halvora
