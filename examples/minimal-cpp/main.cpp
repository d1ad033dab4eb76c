// Halvora in a program without a UI toolkit, built with pkg-config:
//   c++ main.cpp $(pkg-config --cflags --libs halvora) -o minimal-cpp
//   ./minimal-cpp [API]
// It registers the device with the service and keeps it registered until interrupted.
#include <cstdio>
#include <memory>

#include <halvora/halvora.h>
#include <halvora/platform.h>

int main(int argc, char** argv) {
    using namespace halvora;

    // Without a toolkit the program runs the library's main queue itself.
    auto loop = std::make_shared<platform::RunLoop>();
    auto app = std::make_shared<platform::StaticAppInfo>();
    app->id = "com.example.minimal";
    app->name = "Minimal";
    platform::install({.mainQueue = loop, .appInfo = app});

    auto& halvora = Halvora::instance();
    if (argc > 1) halvora.setApi(argv[1]);
    halvora.start();
    std::printf("device %s\n", halvora.deviceId().c_str());
    std::fflush(stdout);
    loop->run();
}
