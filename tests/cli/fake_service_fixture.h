#pragma once
// Runs the tool's commands against a scripted service: the library fixture (manual clock,
// in-memory stores) whose HTTP client plays a well-behaved service unless a test replaces a
// route, and the tool's log relay in quiet mode (the library's log is still watched).

#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "tools/cli/cli_options.h"
#include "tools/cli/host_setup.h"
#include "tools/cli/log_relay.h"
#include "tests/support/library_fixture.h"

namespace halvora::testing {

class FakeServiceTest : public LibraryTest {
public:
    using Route = FakeHttpClient::Script;
    static constexpr const char* kApi = "http://svc";

    static Json session(const std::string& id, const std::string& state);
    static platform::HttpResult answer(long status, const Json& body) { return FakeHttpClient::answer(status, body.dump()); }
    static platform::HttpResult failure(long code, std::string message) {
        return FakeHttpClient::failure(code, std::move(message));
    }

protected:
    void SetUp() override;
    // Installs the quiet log relay, configures the library for `options` and runs its command.
    int runCli();
    // "PUT device", "POST sessions", "GET session", "PUT session", "DELETE device".
    static std::string routeOf(const platform::HttpRequest& request);
    // "METHOD url" of every request, in order.
    std::vector<std::string> sentLines() const;
    // One line per element, without the trailing newline.
    static std::vector<std::string> linesOf(const std::string& text);

    std::map<std::string, Route> routes;
    cli::CliOptions options;
    std::ostringstream out;
    std::ostringstream err;
};

}  // namespace halvora::testing
