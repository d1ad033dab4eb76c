// Whatever a settings file may hold after a crash, a disk error or tampering: reading it must
// never crash, and the store must stay usable.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "platform/linux/file_store.h"
#include "halvora/platform/log.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto dir = [] {
        halvora::platform::setLogSink([](std::string_view) {});
        auto path = std::filesystem::temp_directory_path() / ("halvora-fuzz-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path;
    }();
    auto file = dir / "settings.json";
    {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    halvora::platform::FileStore store(file);
    (void)store.get("halvora_device_id");
    if (size % 7 == 0) {
        store.set("halvora_device_id", "A");
        if (store.get("halvora_device_id") != "A") __builtin_trap();
    }
    return 0;
}
