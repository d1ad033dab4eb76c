#include "qt/session_flow_item.h"

#include "facade/facade_access.h"
#include "halvora/session_flow.h"
#include "qt/quick_view.h"

namespace halvora::qt {

SessionFlowItem::SessionFlowItem(QQuickItem* parent) : QQuickItem(parent) {}

SessionFlowItem::~SessionFlowItem() = default;

void SessionFlowItem::setSessionId(const QString& sessionId) {
    if (sessionId == sessionId_) return;
    sessionId_ = sessionId;
    Q_EMIT sessionIdChanged();
}

void SessionFlowItem::componentComplete() {
    QQuickItem::componentComplete();
    // Queued: a StackView or Popup adopts the item only after it is complete, and the flow reads
    // where it stands when it appears.
    QMetaObject::invokeMethod(this, &SessionFlowItem::build, Qt::QueuedConnection);
}

void SessionFlowItem::build() {
    if (flow_) return;
    flow_ = HLVViewController::make(FacadeAccess::sessionSource());
    if (!sessionId_.isEmpty()) flow_->loadSession(sessionId_.toStdString());
    auto view = flow_->view();
    QQuickItem* root = itemOf(view);
    if (!root) return;
    root->setParentItem(this);
    view->setFillsSuperview();
    auto appear = [this] {
        if (isVisible() && flow_) flow_->viewWillAppear(false);
    };
    QObject::connect(this, &QQuickItem::visibleChanged, this, appear);
    appear();
}

}  // namespace halvora::qt
