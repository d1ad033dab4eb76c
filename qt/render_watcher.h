#pragma once
// Tells when any of the application's Qt Quick windows presented a new picture, so that frames
// are captured right after the screen changed and never while nothing renders.

#include <QObject>

#include <functional>

namespace halvora::qt {

class RenderWatcher final : public QObject {
    Q_OBJECT

public:
    // Calls `onRender` on the GUI thread after each swap of the windows shown now and of those
    // shown later, until destroyed.
    explicit RenderWatcher(std::function<void()> onRender, QObject* parent = nullptr);
    ~RenderWatcher() override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void watch(QObject* window);
    void rendered();

    std::function<void()> onRender_;
};

}  // namespace halvora::qt
