// The curl client on loopback. Ordinary exchanges cross it in the command-line tool's tests against
// the reference service; here are what must never reach the wire, the transport failures, and
// completion on every path.
#include "platform/linux/curl_http_client.h"

#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/support/scripted_http_server.h"

namespace halvora::platform {
namespace {

using namespace std::chrono_literals;
using halvora::testing::Reply;
using ::testing::StartsWith;

struct Call {
    int tag;
    HttpResult result;
    std::thread::id thread;
};

class CurlHttpClientTest : public ::testing::Test {
protected:
    // Whatever a test did, every request it sent must have completed exactly once by the time the
    // client is gone.
    void TearDown() override {
        client_.reset();
        const auto done = calls();
        for (int tag = 0; tag < nextTag_; ++tag) {
            EXPECT_EQ(std::count_if(done.begin(), done.end(), [&](const Call& call) { return call.tag == tag; }), 1)
                << "request #" << tag;
        }
    }

    int send(HttpRequest request) {
        const int tag = nextTag_++;
        client_->send(std::move(request), [this, tag](HttpResult result) {
            std::lock_guard lock(mutex_);
            calls_.push_back({tag, std::move(result), std::this_thread::get_id()});
            changed_.notify_all();
        });
        return tag;
    }
    // Waits for `count` completions; the deadline only stops a broken test.
    bool waitForCalls(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, 30s, [&] { return calls_.size() >= count; });
    }
    std::vector<Call> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    HttpResult exchange(HttpRequest request) {
        const int tag = send(std::move(request));
        EXPECT_TRUE(waitForCalls(static_cast<std::size_t>(tag) + 1)) << "the request never completed";
        const auto done = calls();
        const auto it = std::find_if(done.begin(), done.end(), [&](const Call& call) { return call.tag == tag; });
        return it == done.end() ? HttpResult{} : it->result;
    }
    HttpRequest request(std::string method, std::string target, std::optional<std::string> body = std::nullopt) {
        return {server_.url(target), std::move(method), {}, std::move(body)};
    }

    testing::ScriptedHttpServer server_;
    std::unique_ptr<CurlHttpClient> client_ = std::make_unique<CurlHttpClient>();
    int nextTag_ = 0;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
};

TEST_F(CurlHttpClientTest, ForgedLinesAndOtherSchemesNeverReachTheWire) {
    server_.enqueueReply(Reply::status(302).withHeader("Location", "file:///etc/passwd"));
    HttpRequest injected = request("GET", "/");
    injected.headers = {{"X-Note", "a\r\nX-Injected: 1"}};
    HttpRequest badName = request("GET", "/");
    badName.headers = {{"Bad Name", "1"}};
    const std::pair<HttpRequest, CURLcode> cases[] = {
        {injected, CURLE_BAD_FUNCTION_ARGUMENT},
        {badName, CURLE_BAD_FUNCTION_ARGUMENT},
        {request("GET /x HTTP/1.1\r\n", "/"), CURLE_BAD_FUNCTION_ARGUMENT},
        {request("", "/"), CURLE_BAD_FUNCTION_ARGUMENT},
        {{"file:///etc/passwd", "GET", {}, std::nullopt}, CURLE_UNSUPPORTED_PROTOCOL},
        {{"ftp://127.0.0.1:" + std::to_string(server_.port()) + "/", "GET", {}, std::nullopt}, CURLE_UNSUPPORTED_PROTOCOL},
        {request("GET", "/to-file"), CURLE_UNSUPPORTED_PROTOCOL},  // the redirect is not followed
    };
    for (const auto& [sent, code] : cases) {
        const HttpResult result = exchange(sent);
        ASSERT_TRUE(result.error) << sent.url;
        EXPECT_EQ(result.error->domain, "curl");
        EXPECT_EQ(result.error->code, code) << sent.url;
        EXPECT_EQ(result.body.find("root:"), std::string::npos);
    }
    ASSERT_EQ(server_.requests().size(), 1u);
    EXPECT_EQ(server_.requests()[0].target, "/to-file");
}

TEST_F(CurlHttpClientTest, RefusedDroppedAndSilentConnectionsAreCurlErrorsWithoutAResponse) {
    client_ = std::make_unique<CurlHttpClient>(CurlHttpClient::Options{.idleTimeout = 300ms});
    // The dropped one comes first, so it is not a reused connection curl would try again.
    server_.enqueueReply(Reply::closeConnection());
    server_.enqueueReply(Reply::neverAnswer());
    struct Case {
        HttpRequest sent;
        std::vector<CURLcode> codes;
        std::string message;  // a prefix of it
    };
    const std::string refused = curl_easy_strerror(CURLE_COULDNT_CONNECT);
    const Case cases[] = {
        {{"http://127.0.0.1:" + std::to_string(halvora::testing::unusedLoopbackPort()) + "/", "GET", {}, std::nullopt},
         {CURLE_COULDNT_CONNECT}, refused},
        {request("POST", "/hangup", "{}"), {CURLE_GOT_NOTHING, CURLE_RECV_ERROR}, ""},
        {request("GET", "/silent"), {CURLE_OPERATION_TIMEDOUT}, "The request timed out."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sent.url);
        const HttpResult result = exchange(c.sent);
        ASSERT_TRUE(result.error);
        EXPECT_EQ(result.error->domain, "curl");
        EXPECT_THAT(c.codes, ::testing::Contains(static_cast<CURLcode>(result.error->code)));
        EXPECT_THAT(result.error->message, StartsWith(c.message));
        EXPECT_FALSE(result.response);
    }
    // The refusal carries the error buffer's detail after curl's summary.
    EXPECT_GT(exchange(cases[0].sent).error->message.size(), refused.size());
}

// A reused connection that dies before the answer makes curl send the request again; the service
// may have acted on the first copy.
TEST_F(CurlHttpClientTest, APostIsNeverSentTwiceWhenAConnectionDiesBeforeItsAnswer) {
    server_.setDefaultReply(Reply::status(200, "ok"));
    ASSERT_FALSE(exchange(request("GET", "/warm")).error);  // leaves a connection to reuse
    server_.enqueueReply(Reply::closeConnection());
    EXPECT_TRUE(exchange(request("POST", "/sessions", "{}")).error);
    const auto received = server_.requests();
    EXPECT_EQ(std::count_if(received.begin(), received.end(), [](const auto& r) { return r.method == "POST"; }), 1);
}

TEST_F(CurlHttpClientTest, ConcurrentRequestsEachCompleteOnceOnOneNetworkThread) {
    server_.setHandler([](const auto& received) { return Reply::status(200, "reply to " + received.body); });
    constexpr int kRequests = 50;
    for (int i = 0; i < kRequests; ++i) send(request("POST", "/echo", "request " + std::to_string(i)));

    ASSERT_TRUE(waitForCalls(kRequests));
    const auto done = calls();
    const std::thread::id networkThread = done.front().thread;
    EXPECT_NE(networkThread, std::this_thread::get_id());
    for (const auto& call : done) {
        EXPECT_FALSE(call.result.error) << call.tag;
        EXPECT_EQ(call.result.body, "reply to request " + std::to_string(call.tag));
        EXPECT_EQ(call.thread, networkThread);
    }
}

TEST_F(CurlHttpClientTest, DestroyingTheClientCancelsQueuedAndInFlightRequests) {
    server_.setDefaultReply(Reply::neverAnswer());
    send(request("GET", "/in-flight"));
    ASSERT_TRUE(server_.waitForRequests(1));
    for (int i = 0; i < 4; ++i) send(request("POST", "/maybe-queued", "{}"));

    client_.reset();

    const auto done = calls();
    ASSERT_EQ(done.size(), 5u) << "every completion must have run before the destructor returned";
    for (const auto& call : done) {
        ASSERT_TRUE(call.result.error);
        EXPECT_EQ(call.result.error->code, CURLE_ABORTED_BY_CALLBACK);
        EXPECT_EQ(call.result.error->message, "cancelled");
    }
}

}  // namespace
}  // namespace halvora::platform
