#include "qt/page_controller.h"

#include "qt/halvora_attached.h"
#include "qt/qml_type_name.h"
#include "qt/quick_view.h"

namespace halvora::qt {

PageController::PageController(QQuickItem* page) : page_(page), handle_(page), className_(qmlTypeName(page)) {}

std::optional<std::string> PageController::title() const {
    if (!page_) return std::nullopt;
    const QString title = page_->property("title").toString();
    if (title.isEmpty()) return std::nullopt;
    return title.toStdString();
}

platform::ViewRef PageController::view() const { return page_ ? viewFor(page_.data()) : nullptr; }

std::optional<std::vector<platform::ViewRef>> PageController::redactedViews() const {
    const HalvoraAttached* marker = page_ ? HalvoraAttached::existingFor(page_.data()) : nullptr;
    if (!marker || !marker->declaresRedactedItems()) return std::nullopt;
    std::vector<platform::ViewRef> views;
    for (QQuickItem* item : marker->liveRedactedItems()) views.push_back(viewFor(item));
    return views;
}

}  // namespace halvora::qt
