// wss:// with certificate and host name verification. Handlers run on the network thread here.
#include "peer_fixture.h"

namespace halvora::sio_test {
namespace {

class Tls : public PeerTest {
protected:
    sio::Config tlsConfig() {
        auto config = this->config();
        config.handleQueue = nullptr;
        config.reconnects = false;
        return config;
    }
    std::string url(const std::string& host) const {
        return "wss://" + host + ":" + std::to_string(peer_.tlsPort);
    }
};

TEST_F(Tls, TrustedCertificateConnects) {
    auto config = tlsConfig();
    config.caFile = peer_.caFile;
    auto manager = connect(config, url("localhost"));
    ASSERT_TRUE(recorder_.waitFor("connect"));
    const auto data = bytes(30 * 1024);
    auto acked = ask(manager->defaultSocket(), "echo", {sio::binary(data)});
    ASSERT_TRUE(acked);
    EXPECT_EQ(bytesOf(acked->at(0)), data);
}

TEST_F(Tls, UntrustedOrMismatchedCertificatesAreRejected) {
    auto config = tlsConfig();
    {
        // Self-signed, and not in the system store.
        auto manager = connect(config, url("localhost"));
        EXPECT_THAT(recorder_.first("error").dump(), HasSubstr("self-signed"));
    }
    {
        // Trusted, but issued for "localhost", not for the address.
        config.caFile = peer_.caFile;
        auto manager = connect(config, url("127.0.0.1"));
        EXPECT_THAT(recorder_.first("error", 2).dump(), HasSubstr("not valid for 127.0.0.1"));
    }
    EXPECT_EQ(recorder_.count("connect"), 0);
    {
        // Tests may turn verification off.
        config.caFile.clear();
        config.verifyPeer = false;
        auto manager = connect(config, url("127.0.0.1"));
        EXPECT_TRUE(recorder_.waitFor("connect"));
    }
}

}  // namespace
}  // namespace halvora::sio_test
