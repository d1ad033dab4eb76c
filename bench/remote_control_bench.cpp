// What an agent's tap costs on the device, offscreen with the software scene graph:
// - the whole path on the demo shop's busiest screen (its product list): a "touch" record's
//   arrival (parsed from JSON), choosing the window, delivering Qt's press and release, until the
//   row's own onClicked handler runs; p50 and p99 against the 1 ms target;
// - hit testing alone on a window of 1,000 items, against the 100 us target.
// Build with -DCMAKE_BUILD_TYPE=Release for meaningful numbers.

#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlExpression>
#include <QQuickItem>
#include <QQuickWindow>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <string_view>
#include <vector>

#include "control/touch_injector.h"
#include "halvora/halvora.h"
#include "halvora/platform.h"
#include "halvora/quick.h"
#include "qt/quick_window.h"

namespace {

using Clock = std::chrono::steady_clock;

// Stands in for the shop's report object: notes when a handler ran.
class HandlerClock final : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE void say(const QString&) { ranAt = Clock::now(); }
    Clock::time_point ranAt;
};

HandlerClock* handlerClock() {
    static auto* clock = new HandlerClock();
    return clock;
}

QQuickWindow* shopWindow() {
    static QQuickWindow* window = [] {
        auto* engine = new QQmlApplicationEngine();
        QObject::connect(engine, &QQmlEngine::warnings, [](const QList<QQmlError>& warnings) {
            for (const auto& warning : warnings) std::fprintf(stderr, "%s\n", qPrintable(warning.toString()));
        });
        engine->rootContext()->setContextProperty("demoTourSeconds", 0);
        engine->rootContext()->setContextProperty("shop", handlerClock());
        engine->load(QUrl::fromLocalFile(HALVORA_SOURCE_DIR "/examples/quick-demo/Main.qml"));
        auto* created = engine->rootObjects().isEmpty() ? nullptr : qobject_cast<QQuickWindow*>(engine->rootObjects().first());
        if (!created) {
            std::fprintf(stderr, "the shop did not load: %d root objects\n", int(engine->rootObjects().size()));
            std::abort();
        }
        created->requestActivate();
        QCoreApplication::processEvents();
        return created;
    }();
    return window;
}

// Presses carry their click count, as the console's do: taps in quick succession are not double clicks.
halvora::Json touchRecord(const char* state, double x, double y) {
    halvora::Json record{{"type", "Touch"}, {"id", "bench"}, {"state", state}, {"x", x / 390}, {"y", y / 844}};
    if (std::string_view(state) == "touchstart") record["clicks"] = 1;
    return record;
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

// One tap on the third product row, from the records' arrival to its onClicked handler.
void BM_TapToHandler(benchmark::State& state) {
    QQuickWindow* window = shopWindow();
    QQuickItem* stack = nullptr;
    for (auto* item : window->findChildren<QQuickItem*>()) {
        if (item->inherits("QQuickStackView")) stack = item;
    }
    if (!stack) std::abort();
    QQmlExpression backToList(qmlContext(stack), stack, "pop(null, StackView.Immediate)");
    halvora::HLVTouchInjector injector(nullptr);
    const halvora::Json press = touchRecord("touchstart", 195, 124 + 64 * 2 + 32);
    const halvora::Json release = touchRecord("touchend", 195, 124 + 64 * 2 + 32);
    std::vector<double> micros;
    for (auto _ : state) {
        const auto start = Clock::now();
        injector.inject(std::get<halvora::HLVTouchEvent>(*halvora::agentEventFrom("touch", press)));
        injector.inject(std::get<halvora::HLVTouchEvent>(*halvora::agentEventFrom("touch", release)));
        micros.push_back(std::chrono::duration<double, std::micro>(handlerClock()->ranAt - start).count());
        state.PauseTiming();
        // Back to the list for the next tap: the row opened its product page.
        backToList.evaluate();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
    const double p50 = percentile(micros, 0.5);
    const double p99 = percentile(micros, 0.99);
    state.counters["p50_us"] = p50;
    state.counters["p99_us"] = p99;
    state.counters["p99_to_1ms"] = p99 / 1000.0;
}
BENCHMARK(BM_TapToHandler)->Iterations(500)->Unit(benchmark::kMicrosecond);

// Hit testing on 1,000 items (a grid of cards, each with a label), at random points.
void BM_HitTest1000Items(benchmark::State& state) {
    static QQuickWindow* window = [] {
        auto* engine = new QQmlEngine();
        QQmlComponent component(engine);
        component.setData(R"(
import QtQuick
Window {
    width: 390; height: 844; visible: true
    Flow { anchors.fill: parent
        Repeater { model: 500
            Rectangle { width: 39; height: 16; color: index % 2 ? "#eeeeee" : "#dddddd"
                Text { anchors.centerIn: parent; text: index; font.pixelSize: 8 } } } }
})",
                          QUrl());
        auto* created = qobject_cast<QQuickWindow*>(component.create());
        if (!created) std::abort();
        QCoreApplication::processEvents();
        return created;
    }();
    halvora::qt::QuickWindow quick(window);
    std::mt19937 random(42);
    std::uniform_real_distribution<double> x(0, 390);
    std::uniform_real_distribution<double> y(0, 844);
    std::size_t hits = 0;
    const auto start = Clock::now();
    for (auto _ : state) {
        auto view = quick.hitTest({x(random), y(random)});
        hits += view != nullptr;
        benchmark::DoNotOptimize(view);
    }
    const double micros = std::chrono::duration<double, std::micro>(Clock::now() - start).count() /
                          static_cast<double>(state.iterations());
    state.counters["us_per_hit"] = micros;
    state.counters["to_100us"] = micros / 100.0;
    state.counters["hit_share"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_HitTest1000Items)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND")) qputenv("QT_QUICK_BACKEND", "software");
    QGuiApplication app(argc, argv);
    halvora::qt::install();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    std::printf("targets: p99_to_1ms < 1 (tap to handler), to_100us < 1 (hit test on 1,000 items)\n");
    benchmark::Shutdown();
    return 0;
}

#include "remote_control_bench.moc"
