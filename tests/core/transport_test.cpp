// The REST transport: headers, methods, bodies, and the one callback each outcome produces, with
// the error statuses, non-JSON bodies and edges a server rarely sends; curl's own failures are in
// tests/platform/curl_http_client_test.cpp.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "protocol/wire_headers.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

struct Outcome {
    int calls = 0;
    OptionalError error;
    std::optional<Json> answer;
    std::optional<platform::HttpResponse> response;
};

class TransportTest : public testing::LibraryTest {
protected:
    RequestCallback record() {
        outcome = {};
        return [this](OptionalError error, std::optional<Json> answer, std::optional<platform::HttpResponse> response) {
            outcome = {outcome.calls + 1, std::move(error), std::move(answer), std::move(response)};
        };
    }
    void start() {
        Halvora::instance().start();
        http->respondJson(200, R"({"id":"d"})");  // the registration, so only the test's request is pending
        runPending();
    }
    Outcome outcome;
};

TEST_F(TransportTest, StoppedLibraryFailsAtOnceAndSendsNothingButAnEarlierRequestStillGoes) {
    Halvora::request("http://127.0.0.1:1/x", {}, record());
    ASSERT_EQ(outcome.calls, 1);  // before request() returned, without running the queue
    EXPECT_EQ(*outcome.error, HLVError("Halvora not started", 0));
    EXPECT_FALSE(outcome.answer || outcome.response);
    EXPECT_TRUE(http->sent().empty());

    start();
    Halvora::request("http://h/s", {}, record());
    Halvora::instance().stop();
    EXPECT_EQ(http->pendingCount(), 2u);  // the request and stop's deregistration
}

TEST_F(TransportTest, SendsFixedHeadersInOrderMethodAndCompactBody) {
    store->set(kDeviceCredentialKey, "k3y");  // for the service only, as the table below checks
    start();
    Halvora::request("http://h/a b?x=1", {std::nullopt, Json{{"b", 1}, {"a", {true, nullptr}}}}, record());
    const auto& sent = http->lastSent();
    EXPECT_EQ(sent.url, "http://h/a b?x=1");  // neither escaped nor validated
    EXPECT_EQ(sent.method, "GET");            // a body without a method still goes as GET
    EXPECT_EQ(sent.body, R"({"b":1,"a":[true,null]})");
    const platform::HeaderList expected{{"X-HalvoraPlatform", "linux"},
                                        {"X-HalvoraSDKVersion", "1.5.4"},
                                        {"Content-Type", "application/json; charset=utf-8"}};
    EXPECT_EQ(sent.headers, expected);

    Halvora::request("http://h/b", {"DELETE", std::nullopt}, record());
    EXPECT_FALSE(http->lastSent().body);
    EXPECT_EQ(http->lastSent().headers, expected);  // content type even without a body
    http->respond(204, "");
    EXPECT_EQ(outcome.calls, 0);  // posted, not run inline
    runPending();
    ASSERT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.error || outcome.answer);  // no content, no document
    EXPECT_EQ(outcome.response->status, 204);

    const std::pair<std::string, bool> destinations[] = {
        {"https://api.halvora.io/api/1/sessions", true}, {"https://api.halvora.io", true},
        {"https://api.halvora.io.example.com/x", false}, {"http://api.halvora.io/x", false}};
    for (const auto& [url, withCredential] : destinations) {
        Halvora::request(url, {}, record());
        auto withIt = expected;
        if (withCredential) withIt.emplace_back("Authorization", "Bearer k3y");
        EXPECT_EQ(http->lastSent().headers, withIt) << url;
    }
}

TEST_F(TransportTest, OnlyATextMessageNamesAnHttpFailureAndOnlyAJsonDocumentIsAnAnswer) {
    start();
    const std::tuple<int, const char*, std::optional<HLVError>> cases[] = {
        {400, R"({"message":42})", HLVError("Request failed", 400)},
        {404, R"({"message":"Session not found"})", HLVError("Session not found", 404)},
        {200, "", std::nullopt},  // no error of its own: a parse error
        {200, "42", std::nullopt},
        {200, "\"text\"", std::nullopt},
        {200, "{\"a\":", std::nullopt},
    };
    for (const auto& [status, body, expected] : cases) {
        Halvora::request("http://h/s", {}, record());
        http->respond(status, body);
        runPending();
        ASSERT_EQ(outcome.calls, 1) << body;
        ASSERT_TRUE(outcome.error) << body;
        if (expected) {
            EXPECT_EQ(*outcome.error, *expected);
            EXPECT_EQ(*outcome.answer, Json::parse(body));
        } else {
            EXPECT_EQ(outcome.error->domain(), "json") << body;
            EXPECT_FALSE(outcome.answer);
        }
        EXPECT_EQ(outcome.response->status, status);
    }
}

TEST_F(TransportTest, UnserialisableBodyFailsOnTheMainQueueAndSendsNothing) {
    start();
    const auto before = http->sent().size();
    Halvora::request("http://h/s", {"PUT", Json{{"name", std::string("\xff\xfe")}}}, record());
    EXPECT_EQ(outcome.calls, 0);
    runPending();
    ASSERT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.error->domain(), "json");
    EXPECT_EQ(http->sent().size(), before);
}

}  // namespace
}  // namespace halvora
