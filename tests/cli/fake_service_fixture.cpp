#include "tests/cli/fake_service_fixture.h"

#include "tools/cli/commands.h"
#include "halvora/platform.h"

namespace halvora::testing {

using Result = std::optional<platform::HttpResult>;

void FakeServiceTest::SetUp() {
    LibraryTest::SetUp();
    const Json record = {{"type", "Device"}, {"id", "D"}, {"next_registration", 600}};
    const auto reply = [](long status, const Json& body) {
        return [status, body](const platform::HttpRequest&) -> Result { return answer(status, body); };
    };
    routes["PUT device"] = routes["DELETE device"] = reply(200, record);
    routes["POST sessions"] = reply(201, session("S1", "pending"));
    routes["GET session"] = reply(200, session("S1", "pending"));
    routes["PUT session"] = [](const platform::HttpRequest& request) -> Result {
        return answer(200, session("S1", Json::parse(*request.body).at("state").get<std::string>()));
    };
    http->script = [this](const platform::HttpRequest& request) -> Result {
        auto route = routes.find(routeOf(request));
        if (route == routes.end()) {
            ADD_FAILURE() << "unexpected request " << request.method << " " << request.url;
            return answer(404, {{"message", "Not found"}});
        }
        return route->second(request);
    };
    options.api = kApi;
}

int FakeServiceTest::runCli() {
    auto relay = std::make_shared<cli::LogRelay>(false, [](std::string_view text) { ADD_FAILURE() << "echoed " << text; });
    relay->install();
    return cli::runCommand(options, cli::Host{loop, relay}, out, err);
}

Json FakeServiceTest::session(const std::string& id, const std::string& state) {
    return {{"type", "Session"}, {"id", id}, {"code", "123456"}, {"state", state}};
}

std::string FakeServiceTest::routeOf(const platform::HttpRequest& request) {
    std::string path = request.url.substr(std::string(kApi).size());
    if (path.starts_with("/api/1/devices/")) return request.method + " device";
    if (path == "/api/1/sessions") return request.method + " sessions";
    if (path.starts_with("/api/1/sessions/")) return request.method + " session";
    return request.method + " " + path;
}

std::vector<std::string> FakeServiceTest::sentLines() const {
    std::vector<std::string> lines;
    for (const auto& request : http->sent()) lines.push_back(request.method + " " + request.url);
    return lines;
}

std::vector<std::string> FakeServiceTest::linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

}  // namespace halvora::testing
