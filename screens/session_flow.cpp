#include "halvora/session_flow.h"

#include <utility>

#include "halvora/platform.h"
#include "halvora/platform/controls.h"
#include "screens/child_screens.h"

namespace halvora {
namespace {

void onTouchUpInside(const platform::ViewRef& button, std::function<void()> action) {
    if (!button) return;
    if (auto* control = button->asControl()) control->addTarget(platform::ControlEvent::touchUpInside, std::move(action));
}

}  // namespace

std::shared_ptr<HLVViewController> HLVViewController::make(std::shared_ptr<HLVSessionSource> source) {
    return std::shared_ptr<HLVViewController>(new HLVViewController(std::move(source)));
}

HLVViewController::HLVViewController(std::shared_ptr<HLVSessionSource> source)
    : HLVScreen("HLVHalvoraView"), source_(std::move(source)) {}

HLVViewController::~HLVViewController() = default;

std::weak_ptr<HLVViewController> HLVViewController::weakSelf() {
    return std::static_pointer_cast<HLVViewController>(shared_from_this());
}

void HLVViewController::viewDidLoad() { setupSubviews(); }

void HLVViewController::setupSubviews() {
    codeDisplay_ = std::make_shared<HLVCodeDisplayViewController>();
    countdown_ = std::make_shared<HLVCountdownViewController>();
    approval_ = std::make_shared<HLVSessionApprovalViewController>();
    manageSession_ = std::make_shared<HLVManageSessionViewController>();
    errorDisplay_ = std::make_shared<HLVErrorDisplayViewController>();
    for (HLVScreen* child : std::initializer_list<HLVScreen*>{codeDisplay_.get(), countdown_.get(), approval_.get(),
                                                              manageSession_.get(), errorDisplay_.get()}) {
        child->view();
    }
    // The buttons hold the controller weakly: a closed flow is not kept alive by its own views.
    auto weak = weakSelf();
    auto action = [weak](void (HLVViewController::*method)()) {
        return [weak, method] {
            if (auto self = weak.lock()) ((*self).*method)();
        };
    };
    onTouchUpInside(approval_->outlet("approve"), action(&HLVViewController::accceptSession));
    onTouchUpInside(approval_->outlet("decline"), action(&HLVViewController::declineSession));
    onTouchUpInside(manageSession_->outlet("end"), action(&HLVViewController::endSession));
    onTouchUpInside(outlet("poweredBy"), action(&HLVViewController::openPoweredBy));
    onTouchUpInside(outlet("close"), action(&HLVViewController::close));
    render();
}

void HLVViewController::viewWillAppear(bool /*animated*/) {
    auto button = outlet("close");
    if (button && layout()) button->setHidden(!layout()->isBeingPresented());
    // The session comes with the first appearance, not the loading: a flow whose screen could not
    // be shown must not leave a session waiting for an agent.
    if (std::exchange(appeared_, true) || loadingSession_) return;
    auto current = source_->currentSession();
    if (current && current->isActive()) {
        session_ = current;
        session_->onUpdated([weak = weakSelf()](const std::shared_ptr<HLVSession>&) {
            if (auto self = weak.lock()) self->render();
        });
        render();
    } else {
        createSession();
    }
}

HLVSession::SessionCompletion HLVViewController::adoptCompletion() {
    return [weak = weakSelf()](OptionalError error, std::shared_ptr<HLVSession> session) {
        auto self = weak.lock();
        if (!self) return;
        if (error || !session) {
            self->renderError(error ? *error : HLVError("No session", 0));
            return;
        }
        self->session_ = session;
        self->render();
        session->onUpdated([weak](const std::shared_ptr<HLVSession>&) {
            if (auto flow = weak.lock()) flow->render();
        });
    };
}

HLVViewController& HLVViewController::createSession() {
    source_->createSession(adoptCompletion());
    return *this;
}

HLVViewController& HLVViewController::loadSession(const std::string& sessionId) {
    loadingSession_ = true;
    source_->getSession(sessionId, adoptCompletion());
    return *this;
}

HLVViewController& HLVViewController::showSession(std::shared_ptr<HLVSession> session) {
    loadingSession_ = true;
    adoptCompletion()(std::nullopt, std::move(session));
    return *this;
}

void HLVViewController::render() {
    platform::mainQueue().post([weak = weakSelf()] {
        auto self = weak.lock();
        if (!self || !self->codeDisplay_) return;  // the children come with the view
        const auto& session = self->session_;
        if (session && session->isActive()) {
            self->showSubview(self->manageSession_->view());
        } else if (session && session->isPending() && session->agent()) {
            // The user decides about someone by name, not about "an agent".
            const auto agent = session->agent();
            const auto& name = agent->name;
            self->approval_->setAgentName(name && name->is_string() ? std::optional(name->get<std::string>()) : std::nullopt);
            self->showSubview(self->approval_->view());
        } else {
            self->showSubview(self->codeDisplay_->view());
            self->codeDisplay_->setCode(session ? session->code() : std::nullopt);
        }
    });
}

void HLVViewController::showSubview(const platform::ViewRef& view) {
    platform::mainQueue().post([weak = weakSelf(), view] {
        auto self = weak.lock();
        auto container = self ? self->outlet("subview") : nullptr;
        if (!container || !view) return;
        for (const auto& child : container->subviews()) child->removeFromSuperview();
        view->setFrame(container->bounds());
        view->setFillsSuperview();
        container->addSubview(view);
    });
}

void HLVViewController::renderError(const HLVError& error, const std::optional<std::string>& message) {
    platform::mainQueue().post([weak = weakSelf(), error, message] {
        auto self = weak.lock();
        if (!self) return;
        auto root = self->layout() ? self->layout()->view() : nullptr;
        auto cover = self->errorDisplay_ ? self->errorDisplay_->view() : nullptr;
        if (root && cover) {
            root->addSubview(cover);
            // The way out shows over an error whether the flow was presented or pushed: the
            // error's text tells the user to close it.
            if (auto button = self->outlet("close")) {
                button->setHidden(false);
                root->bringSubviewToFront(button);
            }
            cover->setFrame(root->bounds());
            cover->setFillsSuperview();
            if (auto text = self->errorDisplay_->outlet("message"); text && message) text->setText(*message);
        }
        platform::log("Halvora Error: " + error.description());
    });
}

void HLVViewController::accceptSession() {
    if (!countdown_) return;
    showSubview(countdown_->view());
    // The countdown's end activates even when the screen was closed meanwhile: the user approved.
    countdown_->startCoutdown([weak = weakSelf(), session = session_] {
        auto self = weak.lock();
        if (!session) return;
        session->activate([self](OptionalError error, std::shared_ptr<HLVSession> activated) {
            if (!self) {
                if (error) platform::log("Halvora Error: " + error->description());
                return;
            }
            if (error) {
                self->renderError(*error);
            } else {
                self->onSessionActivated(activated);
            }
        });
    });
}

void HLVViewController::declineSession() { endSession(); }

void HLVViewController::endSession() {
    // The navigation step comes first, so that an error ending the session still leaves.
    close();
    if (!session_) return;
    auto session = session_;
    session->end([source = source_, session](OptionalError error, std::shared_ptr<HLVSession>) {
        if (!error) return;
        // The screen that ended it is gone: a new one tells the user that sharing stopped here
        // but the agent's side may not know.
        auto notice = HLVViewController::make(source);
        notice->showSession(session);
        if (source->present(notice)) {
            notice->renderError(*error, std::string(kEndNotToldMessage));
        } else {
            platform::log("Halvora Error: " + error->description());
        }
    });
    // Sharing ends on this device now, whatever the service answers, or if it never does.
    session->endLocally();
}

void HLVViewController::onSessionActivated(const std::shared_ptr<HLVSession>& /*session*/) {
    platform::mainQueue().post([weak = weakSelf()] {
        auto self = weak.lock();
        if (self && self->layout()) self->layout()->popNavigationToRoot(true);
    });
}

void HLVViewController::openPoweredBy() { platform::urlOpener().openExternally(source_->poweredByUrl()); }

void HLVViewController::close() {
    if (!layout()) return;
    if (layout()->isBeingPresented()) {
        layout()->dismiss(true);
    } else {
        layout()->popNavigation(true);
    }
}

}  // namespace halvora
