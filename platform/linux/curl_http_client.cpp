#include "platform/linux/curl_http_client.h"

#include <curl/curl.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <unordered_map>

#include "base/http_header.h"
#include "halvora/platform/log.h"

namespace halvora::platform {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr const char* kDomain = "curl";
constexpr long kMaxRedirects = 5;
constexpr const char* kAllowedProtocols = "http,https";
// With nothing in flight the loop only waits for curl_multi_wakeup; this just bounds each wait.
constexpr int kIdleWaitMs = 60'000;

CURLcode initCurlOnce() {
    static std::once_flag once;
    static CURLcode result = CURLE_OK;
    std::call_once(once, [] { result = curl_global_init(CURL_GLOBAL_DEFAULT); });
    return result;
}

TransportError cancelledError() {
    return {kDomain, CURLE_ABORTED_BY_CALLBACK, "cancelled"};
}

TransportError timedOutError() {
    return {kDomain, CURLE_OPERATION_TIMEDOUT, "The request timed out."};
}

TransportError curlError(CURLcode code, std::string_view detail = {}) {
    std::string message = curl_easy_strerror(code);
    if (!detail.empty() && detail != message) {
        message += ": ";
        message += detail;
    }
    return {kDomain, code, std::move(message)};
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// Curl would send these bytes straight onto the wire, so a stray CR/LF would let a caller's value
// forge extra headers or a second request.
std::optional<std::string> findMalformedPart(const HttpRequest& request) {
    if (!isHttpToken(request.method)) return "invalid HTTP method \"" + request.method + "\"";
    if (auto problem = invalidHeader(request.headers); !problem.empty()) return problem;
    return std::nullopt;
}

bool hasHeader(const HeaderList& headers, std::string_view name) {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& header) { return equalsIgnoringCase(header.first, name); });
}

// Everything one exchange owns while curl works on it. Only the network thread touches it.
struct Transfer {
    explicit Transfer(HttpClient::Completion done) : completion(std::move(done)) {}
    ~Transfer() {
        if (easy != nullptr) curl_easy_cleanup(easy);
        curl_slist_free_all(headerList);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    void noteActivity() { lastActivity = SteadyClock::now(); }

    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    std::string requestBody;  // CURLOPT_POSTFIELDS points into it without copying
    HttpClient::Completion completion;
    HttpResponse response;
    bool sawStatusLine = false;
    std::string responseBody;
    char errorDetail[CURL_ERROR_SIZE] = {};
    SteadyClock::time_point lastActivity = SteadyClock::now();
    curl_off_t uploaded = 0;
    curl_off_t downloaded = 0;
};

size_t onBodyBytes(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    transfer->responseBody.append(data, size * count);
    transfer->noteActivity();
    return size * count;
}

size_t onHeaderLine(char* data, size_t size, size_t count, void* user) {
    auto* transfer = static_cast<Transfer*>(user);
    const size_t length = size * count;
    transfer->noteActivity();
    std::string_view line(data, length);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line.starts_with("HTTP/")) {
        // Interim (1xx) and redirect responses come through here too; only the last one counts.
        transfer->sawStatusLine = true;
        transfer->response.headers.clear();
        return length;
    }
    if (line.empty()) return length;
    auto& headers = transfer->response.headers;
    if (line.front() == ' ' || line.front() == '\t') {
        // Obsolete line folding: the line continues the previous header's value.
        if (!headers.empty()) {
            headers.back().second += ' ';
            headers.back().second += trimmed(line);
        }
        return length;
    }
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0) return length;
    headers.emplace_back(std::string(line.substr(0, colon)), std::string(trimmed(line.substr(colon + 1))));
    return length;
}

int onProgress(void* user, curl_off_t, curl_off_t downloaded, curl_off_t, curl_off_t uploaded) {
    auto* transfer = static_cast<Transfer*>(user);
    if (downloaded != transfer->downloaded || uploaded != transfer->uploaded) {
        transfer->downloaded = downloaded;
        transfer->uploaded = uploaded;
        transfer->noteActivity();
    }
    return 0;
}

void deliver(HttpClient::Completion& completion, HttpResult result) {
    try {
        completion(std::move(result));
    } catch (const std::exception& e) {
        log(std::string("CurlHttpClient: a completion threw: ") + e.what());
    } catch (...) {
        log("CurlHttpClient: a completion threw");
    }
}

HttpResult failure(TransportError error) {
    HttpResult result;
    result.error = std::move(error);
    return result;
}

// The state shared by the client and its network thread. It outlives the client when the client is
// destroyed from one of its own completions (the thread then finishes on its own).
class NetworkLoop {
public:
    explicit NetworkLoop(CurlHttpClient::Options options) : options_(options) {
        const CURLcode init = initCurlOnce();
        if (init != CURLE_OK) throw std::runtime_error(std::string("curl_global_init: ") + curl_easy_strerror(init));
        multi_ = curl_multi_init();
        share_ = curl_share_init();
        if (multi_ == nullptr || share_ == nullptr) {
            cleanUp();
            throw std::runtime_error("CurlHttpClient: cannot create curl handles");
        }
        // Only the network thread uses the share object, so it needs no lock callbacks.
        curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }

    ~NetworkLoop() { cleanUp(); }

    NetworkLoop(const NetworkLoop&) = delete;
    NetworkLoop& operator=(const NetworkLoop&) = delete;

    void enqueue(HttpRequest request, HttpClient::Completion completion) {
        {
            std::lock_guard lock(mutex_);
            if (!finished_) {
                queue_.push_back({std::move(request), std::move(completion)});
                // Under the lock, so the multi handle cannot be cleaned up underneath the call.
                curl_multi_wakeup(multi_);
                return;
            }
        }
        // Only reachable while the client is being destroyed: no thread is left to run it later.
        deliver(completion, failure(cancelledError()));
    }

    void requestStop() {
        std::lock_guard lock(mutex_);
        stopRequested_ = true;
        if (!finished_) curl_multi_wakeup(multi_);
    }

    // Network thread only: completes everything in flight or queued with the cancel error.
    void cancelEverything() {
        while (!transfers_.empty()) complete(transfers_.begin()->first, cancelledError());
        // Taken from the queue but not started yet (a completion destroyed the client mid-batch).
        while (!starting_.empty()) {
            Pending pending = std::move(starting_.front());
            starting_.pop_front();
            deliver(pending.completion, failure(cancelledError()));
        }
        // Completions may queue more requests while they run; those are cancelled too.
        for (;;) {
            std::deque<Pending> left;
            {
                std::lock_guard lock(mutex_);
                if (queue_.empty()) {
                    finished_ = true;
                    return;
                }
                left.swap(queue_);
            }
            for (auto& pending : left) deliver(pending.completion, failure(cancelledError()));
        }
    }

    void run() {
        blockSigpipeOnThisThread();
        while (takeQueued()) {
            while (!starting_.empty()) {
                Pending pending = std::move(starting_.front());
                starting_.pop_front();
                start(std::move(pending));
            }
            int running = 0;
            curl_multi_perform(multi_, &running);
            completeFinished();
            expireIdle();
            if (curl_multi_poll(multi_, nullptr, 0, pollTimeoutMs(), nullptr) != CURLM_OK) {
                // Should not happen; avoid spinning if it does.
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        cancelEverything();
    }

private:
    struct Pending {
        HttpRequest request;
        HttpClient::Completion completion;
    };

    static void blockSigpipeOnThisThread() {
        // A write to a socket the server closed raises SIGPIPE on the writing thread; blocked here,
        // the write just fails with EPIPE and the host's own signal handling stays untouched.
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    bool takeQueued() {
        std::lock_guard lock(mutex_);
        if (stopRequested_) return false;
        starting_.swap(queue_);
        return true;
    }

    void start(Pending pending) {
        auto transfer = std::make_unique<Transfer>(std::move(pending.completion));
        std::optional<TransportError> error = configure(*transfer, pending.request);
        if (!error) {
            const CURLMcode added = curl_multi_add_handle(multi_, transfer->easy);
            if (added != CURLM_OK) error = curlError(CURLE_FAILED_INIT, curl_multi_strerror(added));
        }
        if (error) {
            HttpClient::Completion completion = std::move(transfer->completion);
            transfer.reset();
            deliver(completion, failure(std::move(*error)));
            return;
        }
        transfer->noteActivity();
        CURL* easy = transfer->easy;
        transfers_.emplace(easy, std::move(transfer));
    }

    std::optional<TransportError> configure(Transfer& transfer, HttpRequest& request) {
        if (request.url.find('\0') != std::string::npos) return curlError(CURLE_URL_MALFORMAT, "the URL contains a NUL byte");
        if (auto problem = findMalformedPart(request)) return curlError(CURLE_BAD_FUNCTION_ARGUMENT, *problem);

        transfer.easy = curl_easy_init();
        if (transfer.easy == nullptr) return curlError(CURLE_FAILED_INIT);
        if (!buildHeaderList(transfer, request)) return curlError(CURLE_OUT_OF_MEMORY);

        CURL* easy = transfer.easy;
        CURLcode rc = CURLE_OK;
        auto set = [&](CURLoption option, auto value) {
            if (rc == CURLE_OK) rc = curl_easy_setopt(easy, option, value);
        };
        set(CURLOPT_ERRORBUFFER, transfer.errorDetail);
        set(CURLOPT_URL, request.url.c_str());
        set(CURLOPT_PROTOCOLS_STR, kAllowedProtocols);
        set(CURLOPT_REDIR_PROTOCOLS_STR, kAllowedProtocols);
        set(CURLOPT_FOLLOWLOCATION, 1L);
        set(CURLOPT_MAXREDIRS, kMaxRedirects);
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
        set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
        set(CURLOPT_SHARE, share_);
        set(CURLOPT_HTTPHEADER, transfer.headerList);
        set(CURLOPT_SSL_VERIFYPEER, options_.verifyPeer ? 1L : 0L);
        set(CURLOPT_SSL_VERIFYHOST, options_.verifyPeer ? 2L : 0L);
        if (options_.idleTimeout.count() > 0) {
            set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options_.idleTimeout.count()));
        }
        set(CURLOPT_WRITEFUNCTION, &onBodyBytes);
        set(CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
        set(CURLOPT_HEADERFUNCTION, &onHeaderLine);
        set(CURLOPT_HEADERDATA, static_cast<void*>(&transfer));
        set(CURLOPT_NOPROGRESS, 0L);
        set(CURLOPT_XFERINFOFUNCTION, &onProgress);
        set(CURLOPT_XFERINFODATA, static_cast<void*>(&transfer));

        if (request.method == "GET" && !request.body) {
            set(CURLOPT_HTTPGET, 1L);
        } else if (request.method == "HEAD") {
            // A HEAD request never carries content; curl must also not wait for a body.
            set(CURLOPT_NOBODY, 1L);
        } else {
            // POST stays curl's own POST so redirects get the usual POST-to-GET treatment.
            if (request.method != "POST") set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
            // curl sends a request again when a reused connection closes before any answer; the
            // server may have acted on the first copy, so what is not idempotent never rides a
            // reused connection (a POST would create two sessions).
            if (request.method == "POST" || request.method == "PATCH") set(CURLOPT_FRESH_CONNECT, 1L);
            if (request.body || request.method == "POST") {
                transfer.requestBody = request.body ? std::move(*request.body) : std::string();
                set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(transfer.requestBody.size()));
                set(CURLOPT_POSTFIELDS, transfer.requestBody.data());
            }
        }
        if (rc != CURLE_OK) return curlError(rc, transfer.errorDetail);
        return std::nullopt;
    }

    static bool buildHeaderList(Transfer& transfer, const HttpRequest& request) {
        auto append = [&](const std::string& line) {
            curl_slist* grown = curl_slist_append(transfer.headerList, line.c_str());
            if (grown == nullptr) return false;
            transfer.headerList = grown;
            return true;
        };
        for (const auto& [name, value] : request.headers) {
            // "Name:" would tell curl to drop the header; "Name;" sends it with an empty value.
            if (!append(value.empty() ? name + ";" : name + ": " + value)) return false;
        }
        // Curl would otherwise add "Expect: 100-continue" to large bodies and stall for an answer.
        if (!hasHeader(request.headers, "Expect") && !append("Expect:")) return false;
        // A body sent through POSTFIELDS would otherwise be labelled as a form.
        if (request.body && !hasHeader(request.headers, "Content-Type") && !append("Content-Type:")) return false;
        return true;
    }

    void completeFinished() {
        std::vector<std::pair<CURL*, CURLcode>> done;
        int left = 0;
        while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            if (message->msg == CURLMSG_DONE) done.emplace_back(message->easy_handle, message->data.result);
        }
        for (auto [easy, code] : done) {
            const auto found = transfers_.find(easy);
            if (found == transfers_.end()) continue;
            std::optional<TransportError> error;
            if (code == CURLE_OPERATION_TIMEDOUT) {
                error = timedOutError();
            } else if (code != CURLE_OK) {
                error = curlError(code, found->second->errorDetail);
            }
            complete(easy, std::move(error));
        }
    }

    void expireIdle() {
        if (options_.idleTimeout.count() <= 0) return;
        const auto now = SteadyClock::now();
        std::vector<CURL*> expired;
        for (const auto& [easy, transfer] : transfers_) {
            if (now - transfer->lastActivity >= options_.idleTimeout) expired.push_back(easy);
        }
        for (CURL* easy : expired) complete(easy, timedOutError());
    }

    int pollTimeoutMs() const {
        if (transfers_.empty() || options_.idleTimeout.count() <= 0) return kIdleWaitMs;
        auto earliest = SteadyClock::time_point::max();
        for (const auto& entry : transfers_) earliest = std::min(earliest, entry.second->lastActivity);
        const auto remaining = earliest + options_.idleTimeout - SteadyClock::now();
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
        return static_cast<int>(std::clamp<long long>(ms, 0, kIdleWaitMs));
    }

    // Takes the transfer out of curl and runs its completion, with no lock held.
    void complete(CURL* easy, std::optional<TransportError> error) {
        auto node = transfers_.extract(easy);
        if (node.empty()) return;
        std::unique_ptr<Transfer> transfer = std::move(node.mapped());
        curl_multi_remove_handle(multi_, easy);

        HttpResult result;
        result.error = std::move(error);
        if (transfer->sawStatusLine) {
            long status = 0;
            curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
            transfer->response.status = status;
            result.response = std::move(transfer->response);
        }
        result.body = std::move(transfer->responseBody);
        HttpClient::Completion completion = std::move(transfer->completion);
        transfer.reset();
        deliver(completion, std::move(result));
    }

    void cleanUp() {
        for (auto& [easy, transfer] : transfers_) curl_multi_remove_handle(multi_, easy);
        transfers_.clear();
        if (multi_ != nullptr) curl_multi_cleanup(multi_);
        if (share_ != nullptr) curl_share_cleanup(share_);
        multi_ = nullptr;
        share_ = nullptr;
    }

    const CurlHttpClient::Options options_;
    CURLM* multi_ = nullptr;
    CURLSH* share_ = nullptr;

    std::mutex mutex_;
    std::deque<Pending> queue_;    // guarded by mutex_
    bool stopRequested_ = false;   // guarded by mutex_
    bool finished_ = false;        // guarded by mutex_: the thread takes no more requests

    // Network thread only.
    std::deque<Pending> starting_;
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> transfers_;
};

}  // namespace

struct CurlHttpClient::Impl {
    std::shared_ptr<NetworkLoop> loop;
    std::thread thread;
};

CurlHttpClient::CurlHttpClient() : CurlHttpClient(Options{}) {}

CurlHttpClient::CurlHttpClient(Options options) : impl_(std::make_unique<Impl>()) {
    impl_->loop = std::make_shared<NetworkLoop>(options);
    impl_->thread = std::thread([loop = impl_->loop] { loop->run(); });
}

CurlHttpClient::~CurlHttpClient() {
    impl_->loop->requestStop();
    if (impl_->thread.get_id() == std::this_thread::get_id()) {
        // Destroyed from one of its own completions: the thread cannot join itself. Cancel the
        // rest here, so no completion runs after this returns; the thread then winds down on its
        // own, keeping the loop alive until it has.
        impl_->loop->cancelEverything();
        impl_->thread.detach();
    } else {
        impl_->thread.join();
    }
}

void CurlHttpClient::send(HttpRequest request, Completion completion) {
    impl_->loop->enqueue(std::move(request), std::move(completion));
}

}  // namespace halvora::platform
