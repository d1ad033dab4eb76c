#pragma once
// The five child screens of the session flow. Three are layouts with outlets only; the code
// display animates random digits until the real code is known, and the countdown counts 3, 2, 1.

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "halvora/platform/main_queue.h"
#include "halvora/session_flow.h"

namespace halvora {

// "HLVCodeDisplayView": `codeLabel`, `instructionLabel`, `working` (an activity indicator).
class HLVCodeDisplayViewController final : public HLVScreen {
public:
    static constexpr const char* kAlphabet = "1234567890";
    static constexpr std::size_t kAnimatedLength = 6;
    static constexpr std::chrono::milliseconds kAnimationStep{80};
    static constexpr std::chrono::milliseconds kCodeDelay{200};
    // The running digits are faint, so that nobody reads them out as the code; the real code
    // comes at full strength.
    static constexpr double kAnimatingAlpha = 0.25;

    HLVCodeDisplayViewController();
    ~HLVCodeDisplayViewController() override;

    // A new random six-digit code every 0.08 s.
    void startAnimation();
    void renderRandomCode();
    // "123456" shows as "123-456".
    void renderCode(const std::string& code);
    // None: the animation goes on. A code: 0.2 s later the animation stops, the activity
    // indicator runs and the code shows at full opacity. Repeating it is harmless.
    void setCode(const std::optional<std::string>& code);

    // Where random numbers come from (uniform 32-bit); tests fix it.
    std::function<std::uint32_t()> random;

private:
    void viewDidLoad() override;
    platform::TimerHandle animationTimer_;
};

// "HLVCountdownView": `coutdown`.
class HLVCountdownViewController final : public HLVScreen {
public:
    HLVCountdownViewController();
    // "3" now, "2" after 1 s, "1" after 2 s, then `completion` after 3 s, whatever happens to the
    // screen meanwhile. Not cancellable.
    void startCoutdown(std::function<void()> completion);
};

// "HLVSessionApprovalView": `approve`, `decline`.
class HLVSessionApprovalViewController final : public HLVScreen {
public:
    HLVSessionApprovalViewController();
    // Names the agent the user is asked about in `agentLabel`, when the layout has one and the
    // agent has a name; otherwise the layout's own words stay.
    void setAgentName(const std::optional<std::string>& name);
};

// "HLVManageSessionView": `end`, `text`.
class HLVManageSessionViewController final : public HLVScreen {
public:
    HLVManageSessionViewController();
};

// "HLVErrorDisplayView": `image`, `message`.
class HLVErrorDisplayViewController final : public HLVScreen {
public:
    HLVErrorDisplayViewController();
};

}  // namespace halvora
