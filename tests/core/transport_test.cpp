// The REST transport: headers, methods, bodies, and the one callback each outcome produces.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
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
        return [this](OptionalError error, std::optional<Json> answer,
                      std::optional<platform::HttpResponse> response) {
            ++outcome.calls;
            outcome.error = std::move(error);
            outcome.answer = std::move(answer);
            outcome.response = std::move(response);
        };
    }
    void startLibrary() {
        Halvora::instance().start();
        runPending();
        // start() registers the device; answer it so only the test's own request is pending.
        http->respondJson(200, R"({"id":"d"})");
        runPending();
    }
    Outcome outcome;
};

TEST_F(TransportTest, StoppedLibraryFailsAtOnceAndSendsNothing) {
    Halvora::request("http://127.0.0.1:1/x", {}, record());
    ASSERT_EQ(outcome.calls, 1);  // before request() returned, without running the queue
    EXPECT_EQ(*outcome.error, HLVError("Halvora not started", 0));
    EXPECT_EQ(outcome.error->domain(), "Halvora");
    EXPECT_FALSE(outcome.answer);
    EXPECT_FALSE(outcome.response);
    EXPECT_TRUE(http->sent().empty());
}

TEST_F(TransportTest, SendsFixedHeadersInOrderMethodAndCompactBody) {
    startLibrary();
    Halvora::request("http://h/a b?x=1", {std::nullopt, Json{{"b", 1}, {"a", {true, nullptr}}}}, record());
    const auto& sent = http->lastSent();
    EXPECT_EQ(sent.url, "http://h/a b?x=1");  // neither escaped nor validated
    EXPECT_EQ(sent.method, "GET");            // a body without a method still goes as GET
    ASSERT_TRUE(sent.body);
    EXPECT_EQ(*sent.body, R"({"b":1,"a":[true,null]})");
    platform::HeaderList expected{{"X-HalvoraPlatform", "ios"},
                                  {"X-HalvoraSDKVersion", "1.5.4"},
                                  {"Content-Type", "application/json; charset=utf-8"}};
    EXPECT_EQ(sent.headers, expected);

    Halvora::request("http://h/b", {"DELETE", std::nullopt}, record());
    EXPECT_EQ(http->lastSent().method, "DELETE");
    EXPECT_FALSE(http->lastSent().body);
    EXPECT_EQ(http->lastSent().headers, expected);  // content type even without a body
}

TEST_F(TransportTest, SuccessAnswersArriveOnTheMainQueueParsedAndNoContentWithout) {
    startLibrary();
    Halvora::request("http://h/s", {}, record());
    http->respondJson(200, R"({"type":"Session","n":[1,2]})");
    EXPECT_EQ(outcome.calls, 0);  // posted, not run inline
    runPending();
    ASSERT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.error);
    EXPECT_EQ((*outcome.answer)["n"][1], 2);
    EXPECT_EQ(outcome.response->status, 200);

    outcome = {};
    Halvora::request("http://h/s", {"DELETE", std::nullopt}, record());
    http->respond(204, "");
    runPending();
    ASSERT_EQ(outcome.calls, 1);
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.answer);
    EXPECT_EQ(outcome.response->status, 204);
}

// A text message is the error's description; anything else gets a generic one.
TEST_F(TransportTest, HttpFailuresCarryTheAnswersMessageOrAGenericOne) {
    startLibrary();
    const std::tuple<int, const char*, HLVError> cases[] = {
        {404, R"({"message":"Session not found"})", HLVError("Session not found", 404)},
        {500, R"({"detail":"boom"})", HLVError("Request failed", 500)},
        {400, R"({"message":42})", HLVError("Request failed", 400)},
    };
    for (const auto& [status, body, expected] : cases) {
        outcome = {};
        Halvora::request("http://h/s", {}, record());
        http->respondJson(status, body);
        runPending();
        ASSERT_EQ(outcome.calls, 1) << body;
        EXPECT_EQ(*outcome.error, expected) << body;
        EXPECT_EQ(*outcome.answer, Json::parse(body));
    }
}

TEST_F(TransportTest, AnswersThatAreNotJsonDocumentsAreParseErrors) {
    startLibrary();
    for (const char* body : {"", "<html>oops</html>", "42", "\"text\"", "{\"a\":"}) {
        outcome = {};
        Halvora::request("http://h/s", {}, record());
        http->respond(200, body);
        runPending();
        ASSERT_EQ(outcome.calls, 1) << body;
        ASSERT_TRUE(outcome.error) << body;
        EXPECT_EQ(outcome.error->domain(), "json") << body;
        EXPECT_FALSE(outcome.answer);
        EXPECT_EQ(outcome.response->status, 200);
    }
    // A failing status with a body that does not parse is still a parse error, not an HTTP one.
    outcome = {};
    Halvora::request("http://h/s", {}, record());
    http->respond(502, "Bad Gateway");
    runPending();
    EXPECT_EQ(outcome.error->domain(), "json");
    EXPECT_EQ(outcome.response->status, 502);
}

TEST_F(TransportTest, TransportFailuresPassThroughInTheirOwnDomain) {
    startLibrary();
    Halvora::request("http://h/s", {}, record());
    http->fail(7, "Couldn't connect to server");
    ASSERT_EQ(outcome.calls, 1);  // delivered where the client reported it
    EXPECT_EQ(outcome.error->domain(), "curl");
    EXPECT_EQ(outcome.error->code(), 7);
    EXPECT_EQ(outcome.error->localizedDescription(), "Couldn't connect to server");
    EXPECT_NE(*outcome.error, HLVError("Couldn't connect to server", 7));  // the domain counts
    runPending();
    EXPECT_EQ(outcome.calls, 1);
}

TEST_F(TransportTest, UnserialisableBodyFailsOnTheMainQueueAndSendsNothing) {
    startLibrary();
    auto before = http->sent().size();
    Halvora::request("http://h/s", {"PUT", Json{{"name", std::string("\xff\xfe")}}}, record());
    EXPECT_EQ(outcome.calls, 0);
    runPending();
    ASSERT_EQ(outcome.calls, 1);
    EXPECT_EQ(outcome.error->domain(), "json");
    EXPECT_EQ(http->sent().size(), before);
}

TEST_F(TransportTest, RequestIssuedBeforeStopIsStillSent) {
    startLibrary();
    Halvora::request("http://h/s", {}, record());
    Halvora::instance().stop();
    Halvora::request("http://h/t", {}, record());
    EXPECT_EQ(*outcome.error, HLVError("Halvora not started", 0));
    // The first request and stop's deregistration are both on the wire.
    EXPECT_EQ(http->pendingCount(), 2u);
}

}  // namespace
}  // namespace halvora
