#include "screens/child_screens.h"

#include <random>

#include "halvora/platform.h"

namespace halvora {
namespace {

std::uint32_t systemRandom() {
    static std::mt19937 generator{std::random_device{}()};
    return static_cast<std::uint32_t>(generator());
}

void setHidden(const platform::ViewRef& view, bool hidden) {
    if (view) view->setHidden(hidden);
}

}  // namespace

HLVScreen::HLVScreen(std::string nibName) : nibName_(std::move(nibName)) {}

HLVScreen::~HLVScreen() = default;

platform::ViewRef HLVScreen::view() {
    if (!loaded_) {
        loaded_ = true;
        layout_ = platform::application().loadLayout(nibName_);
        if (!layout_) platform::log("Halvora has no layout " + nibName_);
        viewDidLoad();
    }
    return layout_ ? layout_->view() : nullptr;
}

platform::ViewRef HLVScreen::outlet(const std::string& name) const {
    return layout_ ? layout_->outlet(name) : nullptr;
}

HLVCodeDisplayViewController::HLVCodeDisplayViewController()
    : HLVScreen("HLVCodeDisplayView"), random(systemRandom) {}

HLVCodeDisplayViewController::~HLVCodeDisplayViewController() { animationTimer_.cancel(); }

void HLVCodeDisplayViewController::viewDidLoad() {
    if (auto label = outlet("codeLabel")) label->setAlpha(kAnimatingAlpha);
    startAnimation();
    setHidden(outlet("working"), true);
}

void HLVCodeDisplayViewController::startAnimation() {
    // Weak: the timer must not keep a closed screen alive, and stops with it.
    std::weak_ptr<HLVScreen> weak = weak_from_this();
    animationTimer_ = platform::mainQueue().repeat(kAnimationStep, [weak] {
        if (auto self = std::static_pointer_cast<HLVCodeDisplayViewController>(weak.lock())) self->renderRandomCode();
    });
}

void HLVCodeDisplayViewController::renderRandomCode() {
    const std::string alphabet = kAlphabet;
    std::string code;
    for (std::size_t i = 0; i < kAnimatedLength; ++i) code += alphabet[random() % alphabet.size()];
    renderCode(code);
}

void HLVCodeDisplayViewController::renderCode(const std::string& code) {
    auto label = outlet("codeLabel");
    if (!label) return;
    // A code too short to split is shown as it is rather than read past its end.
    label->setText(code.size() < 3 ? code : code.substr(0, 3) + "-" + code.substr(3));
}

void HLVCodeDisplayViewController::setCode(const std::optional<std::string>& code) {
    if (!code) return;
    std::weak_ptr<HLVScreen> weak = weak_from_this();
    platform::mainQueue().postAfter(kCodeDelay, [weak, code = *code] {
        auto self = std::static_pointer_cast<HLVCodeDisplayViewController>(weak.lock());
        if (!self) return;
        self->animationTimer_.cancel();
        setHidden(self->outlet("working"), false);
        if (auto label = self->outlet("codeLabel")) label->setAlpha(1.0);
        self->renderCode(code);
    });
}

HLVCountdownViewController::HLVCountdownViewController() : HLVScreen("HLVCountdownView") {}

void HLVCountdownViewController::startCoutdown(std::function<void()> completion) {
    using namespace std::chrono_literals;
    auto show = [weak = weak_from_this()](const char* text) {
        return [weak, text] {
            if (auto self = weak.lock()) {
                if (auto label = self->outlet("coutdown")) label->setText(text);
            }
        };
    };
    show("3")();
    platform::mainQueue().postAfter(1s, show("2"));
    platform::mainQueue().postAfter(2s, show("1"));
    platform::mainQueue().postAfter(3s, [completion = std::move(completion)] {
        if (completion) completion();
    });
}

HLVSessionApprovalViewController::HLVSessionApprovalViewController() : HLVScreen("HLVSessionApprovalView") {}

void HLVSessionApprovalViewController::setAgentName(const std::optional<std::string>& name) {
    auto label = outlet("agentLabel");
    if (!label || !name || name->empty()) return;
    label->setText("Support agent " + *name + " has joined");
}

HLVManageSessionViewController::HLVManageSessionViewController() : HLVScreen("HLVManageSessionView") {}

HLVErrorDisplayViewController::HLVErrorDisplayViewController() : HLVScreen("HLVErrorDisplayView") {}

}  // namespace halvora
