#pragma once
// The outlets each session-screen layout must have, by layout name: what the flow finds by name.

#include <map>
#include <string>
#include <vector>

namespace halvora::testing {

inline const std::map<std::string, std::vector<std::string>>& layoutOutlets() {
    static const std::map<std::string, std::vector<std::string>> outlets = {
        {"HLVHalvoraView", {"poweredBy", "agentIcon", "subview", "close"}},
        {"HLVCodeDisplayView", {"codeLabel", "instructionLabel", "working"}},
        {"HLVCountdownView", {"coutdown"}},
        {"HLVSessionApprovalView", {"agentLabel", "approve", "decline"}},
        {"HLVManageSessionView", {"end", "text"}},
        {"HLVErrorDisplayView", {"image", "message"}},
    };
    return outlets;
}

}  // namespace halvora::testing
