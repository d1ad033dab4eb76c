// The resource base: the adoption rule shared by fetch, update and delete. Successful fetches and
// updates are every session and device test.
#include <gtest/gtest.h>

#include "halvora/halvora.h"
#include "facade/facade_access.h"
#include "halvora/rest_resource.h"
#include "tests/support/library_fixture.h"

namespace halvora {
namespace {

class Record final : public HLVRESTResource {
public:
    static std::shared_ptr<Record> make() { return std::shared_ptr<Record>(new Record()); }
    Record() : HLVRESTResource(FacadeAccess::context()) {}
    std::string url() const override { return "http://svc/records/1"; }
};

class ResourceTest : public testing::LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        startLibrary();
        record = Record::make();
    }
    std::shared_ptr<Record> record;
};

TEST_F(ResourceTest, FailuresLeaveTheRecordAndReachTheCompletion) {
    record->updateResource(Json{{"id", "r1"}});
    std::vector<std::pair<OptionalError, std::shared_ptr<HLVRESTResource>>> calls;
    auto completion = [&](OptionalError error, std::shared_ptr<HLVRESTResource> resource) {
        calls.emplace_back(error, resource);
    };
    record->update(Json{{"x", 1}}, completion);
    EXPECT_EQ(bodyOf(http->lastSent()), (Json{{"x", 1}}));
    http->respondJson(409, R"({"message":"conflict"})");
    runPending();
    record->fetch(completion);
    http->fail();
    runPending();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].first, HLVError("conflict", 409));
    EXPECT_EQ(calls[1].first->domain(), "curl");
    EXPECT_EQ(calls[1].second, record);
    EXPECT_EQ(*record->resource(), (Json{{"id", "r1"}}));
}

TEST_F(ResourceTest, DeleteAdoptsItsAnswerAndNoContentAdoptsNone) {
    record->updateResource(Json{{"id", "r1"}});
    record->deleteResource(nullptr);
    EXPECT_EQ(http->lastSent().method, "DELETE");
    http->respondJson(200, R"({"id":"r1","deleted":true})");
    runPending();
    EXPECT_EQ(*record->field("deleted"), true);
    record->deleteResource(nullptr);
    http->respond(204, "");
    runPending();
    EXPECT_FALSE(record->resource());
}

TEST_F(ResourceTest, RequestKeepsTheResourceAliveUntilItCompletes) {
    std::weak_ptr<Record> weak = record;
    int calls = 0;
    record->fetch([&](OptionalError, std::shared_ptr<HLVRESTResource> r) {
        ++calls;
        EXPECT_EQ(*r->id(), "late");
    });
    record.reset();
    EXPECT_FALSE(weak.expired());
    http->respondJson(200, R"({"id":"late"})");
    runPending();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace halvora
