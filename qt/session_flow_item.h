#pragma once
// The session flow as a QML type the application shows itself: push it onto a StackView, or put
// it in a Popup and open that (then its close button shows).
//
//   import Halvora
//   Button { text: "Get help"; onClicked: stack.push(flow) }
//   Component { id: flow; SessionFlow {} }            // creates a session, or adopts the active one
//   SessionFlow { sessionId: "8f1c..." }               // shows that session instead
//
// The flow is built on the first turn of the event loop after the item is complete, where the
// item already stands in its StackView or Popup; sessionId must be set by then.

#include <QQuickItem>
#include <QString>
#include <QtQml/qqml.h>

#include <memory>

namespace halvora {
class HLVViewController;
}

namespace halvora::qt {

class SessionFlowItem : public QQuickItem {
    Q_OBJECT
    Q_PROPERTY(QString sessionId READ sessionId WRITE setSessionId NOTIFY sessionIdChanged)
    QML_NAMED_ELEMENT(SessionFlow)

public:
    explicit SessionFlowItem(QQuickItem* parent = nullptr);
    ~SessionFlowItem() override;

    QString sessionId() const { return sessionId_; }
    void setSessionId(const QString& sessionId);

    std::shared_ptr<HLVViewController> controller() const { return flow_; }

Q_SIGNALS:
    void sessionIdChanged();

protected:
    void componentComplete() override;

private:
    void build();

    QString sessionId_;
    std::shared_ptr<HLVViewController> flow_;
};

}  // namespace halvora::qt
