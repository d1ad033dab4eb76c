#pragma once
// A ViewController over a Page: class name = the Page's QML type name, title = Page.title (none
// when empty), view = the Page, sensitive views = its Halvora.redactedItems.

#include <QPointer>
#include <QQuickItem>

#include "halvora/platform/view_controller.h"

namespace halvora::qt {

class PageController final : public platform::ViewController {
public:
    explicit PageController(QQuickItem* page);

    // Kept from creation, so a screen still reads by its name after its Page is gone.
    std::string className() const override { return className_; }
    std::optional<std::string> title() const override;
    platform::ViewRef view() const override;
    const void* nativeHandle() const override { return handle_; }
    std::optional<std::vector<platform::ViewRef>> redactedViews() const override;

    QQuickItem* page() const { return page_.data(); }

private:
    QPointer<QQuickItem> page_;
    const void* handle_;
    std::string className_;
};

}  // namespace halvora::qt
