#include "platform/linux/curl_http_client.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

#include "tests/support/scripted_http_server.h"

namespace halvora::platform {
namespace {

using namespace std::chrono_literals;
using halvora::testing::RecordedRequest;
using halvora::testing::Reply;
using halvora::testing::ScriptedHttpServer;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr auto kGenerousDeadline = 30s;

// Every completion call, so a test can tell "once" from "never" and "twice".
class CompletionLog {
public:
    struct Call {
        int tag;
        HttpResult result;
        std::thread::id thread;
    };

    HttpClient::Completion completionFor(int tag) {
        return [this, tag](HttpResult result) {
            std::lock_guard lock(mutex_);
            calls_.push_back({tag, std::move(result), std::this_thread::get_id()});
            changed_.notify_all();
        };
    }

    bool waitForCalls(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kGenerousDeadline, [&] { return calls_.size() >= count; });
    }

    std::optional<HttpResult> waitForTag(int tag) {
        std::unique_lock lock(mutex_);
        const auto found = [&] {
            return std::find_if(calls_.begin(), calls_.end(), [&](const Call& call) { return call.tag == tag; });
        };
        if (!changed_.wait_for(lock, kGenerousDeadline, [&] { return found() != calls_.end(); })) return std::nullopt;
        return found()->result;
    }

    std::vector<Call> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
};

// The headers named in `names`, in their original order and case.
HeaderList onlyNamed(const HeaderList& headers, std::initializer_list<std::string_view> names) {
    HeaderList kept;
    for (const auto& header : headers) {
        const bool wanted = std::any_of(names.begin(), names.end(), [&](std::string_view name) {
            return strcasecmp(std::string(name).c_str(), header.first.c_str()) == 0;
        });
        if (wanted) kept.push_back(header);
    }
    return kept;
}

class CurlHttpClientTest : public ::testing::Test {
protected:
    // Whatever a test did, every request it sent must have completed exactly once by the time the
    // client is gone.
    void TearDown() override {
        client_.reset();
        const auto calls = log_.calls();
        for (int tag = 0; tag < nextTag_; ++tag) {
            EXPECT_EQ(std::count_if(calls.begin(), calls.end(), [&](const auto& call) { return call.tag == tag; }), 1)
                << "request #" << tag;
        }
    }

    void useOptions(CurlHttpClient::Options options) { client_ = std::make_unique<CurlHttpClient>(options); }

    int send(HttpRequest request) {
        const int tag = nextTag_++;
        client_->send(std::move(request), log_.completionFor(tag));
        return tag;
    }

    HttpResult exchange(HttpRequest request) {
        auto result = log_.waitForTag(send(std::move(request)));
        if (!result) {
            ADD_FAILURE() << "the request never completed";
            return {};
        }
        return std::move(*result);
    }

    HttpRequest request(std::string method, std::string target, std::optional<std::string> body = std::nullopt) {
        return {server_.url(target), std::move(method), {}, std::move(body)};
    }

    RecordedRequest onlyRecordedRequest() {
        EXPECT_TRUE(server_.waitForRequests(1));
        const auto requests = server_.requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? RecordedRequest{} : requests.front();
    }

    ScriptedHttpServer server_;
    CompletionLog log_;
    std::unique_ptr<CurlHttpClient> client_ = std::make_unique<CurlHttpClient>();
    int nextTag_ = 0;
};

// ---- What goes on the wire ----------------------------------------------------------------------

TEST_F(CurlHttpClientTest, SendsTargetHeadersInOrderAndBodyAsGiven) {
    server_.setDefaultReply(Reply::noContent());
    const HeaderList headers = {{"X-Zeta", "first"},
                                {"Content-Type", "application/json"},
                                {"x-lower-case", "b"},
                                {"X-Empty", ""},
                                {"X-Zeta", "again"}};
    HttpRequest sent = request("POST", "/v1/items/%C3%A9?q=a%2Fb&flag", R"({"name":"x"})");
    sent.headers = headers;

    const HttpResult result = exchange(sent);

    EXPECT_FALSE(result.error);
    const RecordedRequest received = onlyRecordedRequest();
    EXPECT_EQ(received.method, "POST");
    EXPECT_EQ(received.target, "/v1/items/%C3%A9?q=a%2Fb&flag");
    EXPECT_EQ(onlyNamed(received.headers, {"X-Zeta", "Content-Type", "x-lower-case", "X-Empty"}), headers);
    EXPECT_EQ(received.body, R"({"name":"x"})");
    EXPECT_EQ(received.header("Content-Length"), "12");
    EXPECT_FALSE(received.header("Expect"));

    // A GET with a body stays a GET, without curl's form content type.
    exchange(request("GET", "/search", R"({"filter":1})"));
    ASSERT_TRUE(server_.waitForRequests(2));
    const RecordedRequest get = server_.requests()[1];
    EXPECT_EQ(get.method, "GET");
    EXPECT_EQ(get.body, R"({"filter":1})");
    EXPECT_FALSE(get.header("Content-Type"));
}

TEST_F(CurlHttpClientTest, RejectsMethodsAndHeadersThatWouldForgeOtherLines) {
    HttpRequest injected = request("GET", "/");
    injected.headers = {{"X-Note", "a\r\nX-Injected: 1"}};
    HttpRequest badName = request("GET", "/");
    badName.headers = {{"Bad Name", "1"}};

    for (const HttpRequest& sent : {injected, badName, request("GET /x HTTP/1.1\r\n", "/"), request("", "/")}) {
        const HttpResult result = exchange(sent);
        ASSERT_TRUE(result.error);
        EXPECT_EQ(result.error->domain, "curl");
        EXPECT_EQ(result.error->code, CURLE_BAD_FUNCTION_ARGUMENT);
    }
    EXPECT_TRUE(server_.requests().empty());
}

// ---- What comes back -----------------------------------------------------------------------------

TEST_F(CurlHttpClientTest, ErrorStatusesArriveAsResponsesWithHeadersInOrder) {
    server_.enqueueReply(Reply::json(404, R"({"error":"missing"})").withHeader("X-Request-Id", "abc").withHeader("x-trace", "1"));
    server_.enqueueReply(Reply::status(500, "boom").withHeader("Retry-After", "3"));

    const HttpResult notFound = exchange(request("GET", "/a"));
    const HttpResult failed = exchange(request("GET", "/b"));

    ASSERT_FALSE(notFound.error);
    ASSERT_TRUE(notFound.response);
    EXPECT_EQ(notFound.response->status, 404);
    EXPECT_EQ(notFound.body, R"({"error":"missing"})");
    const HeaderList expected = {{"Content-Type", "application/json"},
                                 {"X-Request-Id", "abc"},
                                 {"x-trace", "1"},
                                 {"Content-Length", "19"}};
    EXPECT_EQ(onlyNamed(notFound.response->headers, {"Content-Type", "X-Request-Id", "x-trace", "Content-Length"}),
              expected);

    ASSERT_FALSE(failed.error);
    ASSERT_TRUE(failed.response);
    EXPECT_EQ(failed.response->status, 500);
    EXPECT_EQ(failed.body, "boom");
    EXPECT_EQ(onlyNamed(failed.response->headers, {"Retry-After"}), (HeaderList{{"Retry-After", "3"}}));
}

// ---- Redirects and protocols ---------------------------------------------------------------------

TEST_F(CurlHttpClientTest, RedirectIsFollowedAndOnlyTheFinalHeadersKept) {
    server_.enqueueReply(Reply::redirect(302, "/final").withHeader("X-Hop", "1"));
    server_.enqueueReply(Reply::json(200, "{}").withHeader("X-Final", "1"));

    const HttpResult result = exchange(request("GET", "/start"));

    EXPECT_FALSE(result.error);
    ASSERT_TRUE(result.response);
    EXPECT_EQ(result.response->status, 200);
    EXPECT_EQ(onlyNamed(result.response->headers, {"X-Hop", "X-Final", "Location"}), (HeaderList{{"X-Final", "1"}}));
    ASSERT_TRUE(server_.waitForRequests(2));
    EXPECT_EQ(server_.requests()[1].target, "/final");
}

TEST_F(CurlHttpClientTest, OnlyHttpAndHttpsAreReachable) {
    server_.enqueueReply(Reply::redirect(302, "file:///etc/passwd"));

    const HttpResult file = exchange({"file:///etc/passwd", "GET", {}, std::nullopt});
    const HttpResult ftp = exchange({"ftp://127.0.0.1:" + std::to_string(server_.port()) + "/", "GET", {}, std::nullopt});
    const HttpResult redirected = exchange(request("GET", "/to-file"));

    for (const HttpResult* result : {&file, &ftp, &redirected}) {
        ASSERT_TRUE(result->error);
        EXPECT_EQ(result->error->domain, "curl");
        EXPECT_EQ(result->error->code, CURLE_UNSUPPORTED_PROTOCOL);
        EXPECT_THAT(result->body, Not(HasSubstr("root:")));
    }
}

// ---- Transport failures --------------------------------------------------------------------------

TEST_F(CurlHttpClientTest, RefusedDroppedAndSilentConnectionsAreCurlErrorsWithoutAResponse) {
    useOptions({.idleTimeout = 300ms});
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

// ---- Threads, concurrency and lifetime -----------------------------------------------------------

TEST_F(CurlHttpClientTest, ConcurrentRequestsEachCompleteOnceOnOneNetworkThread) {
    server_.setHandler([](const RecordedRequest& received) { return Reply::status(200, "reply to " + received.body); });
    constexpr int kRequests = 50;
    for (int i = 0; i < kRequests; ++i) send(request("POST", "/echo", "request " + std::to_string(i)));

    ASSERT_TRUE(log_.waitForCalls(kRequests));
    const auto calls = log_.calls();
    const std::thread::id networkThread = calls.front().thread;
    EXPECT_NE(networkThread, std::this_thread::get_id());
    for (const auto& call : calls) {
        EXPECT_FALSE(call.result.error) << call.tag;
        EXPECT_EQ(call.result.body, "reply to request " + std::to_string(call.tag));
        EXPECT_EQ(call.thread, networkThread);
    }
}

TEST_F(CurlHttpClientTest, SequentialRequestsReuseOneConnection) {
    server_.setDefaultReply(Reply::json(200, "{}"));

    exchange(request("GET", "/one"));
    exchange(request("POST", "/two", "{}"));

    EXPECT_EQ(server_.connectionCount(), 1u);
    ASSERT_TRUE(server_.waitForRequests(2));
    EXPECT_EQ(server_.requests()[0].connection, server_.requests()[1].connection);
}

TEST_F(CurlHttpClientTest, DestroyingTheClientCancelsQueuedAndInFlightRequests) {
    server_.setDefaultReply(Reply::neverAnswer());
    send(request("GET", "/in-flight"));
    ASSERT_TRUE(server_.waitForRequests(1));
    for (int i = 0; i < 4; ++i) send(request("POST", "/maybe-queued", "{}"));

    client_.reset();

    const auto calls = log_.calls();
    ASSERT_EQ(calls.size(), 5u) << "every completion must have run before the destructor returned";
    for (const auto& call : calls) {
        ASSERT_TRUE(call.result.error);
        EXPECT_EQ(call.result.error->domain, "curl");
        EXPECT_EQ(call.result.error->code, CURLE_ABORTED_BY_CALLBACK);
        EXPECT_EQ(call.result.error->message, "cancelled");
    }
}

}  // namespace
}  // namespace halvora::platform
