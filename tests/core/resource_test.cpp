// The resource base: field access and the shared adoption rule of fetch, update and delete.
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

TEST_F(ResourceTest, FetchWithoutCompletionStillAdoptsTheAnswer) {
    EXPECT_FALSE(record->id());
    record->fetch(nullptr);
    EXPECT_EQ(http->lastSent().method, "GET");
    EXPECT_EQ(http->lastSent().url, "http://svc/records/1");
    http->respondJson(200, R"({"id":"r1","n":3})");
    runPending();
    EXPECT_EQ(*record->id(), "r1");
    EXPECT_EQ(*record->field("n"), 3);
}

TEST_F(ResourceTest, FailuresLeaveTheRecordAndReachTheCompletion) {
    record->updateResource(Json{{"id", "r1"}});
    int calls = 0;
    OptionalError seen;
    std::shared_ptr<HLVRESTResource> who;
    auto completion = [&](OptionalError error, std::shared_ptr<HLVRESTResource> resource) {
        ++calls;
        seen = error;
        who = resource;
    };
    record->update(Json{{"x", 1}}, completion);
    EXPECT_EQ(bodyOf(http->lastSent()), (Json{{"x", 1}}));
    http->respondJson(409, R"({"message":"conflict"})");
    runPending();
    record->fetch(completion);
    http->fail();
    runPending();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(seen->domain(), "curl");
    EXPECT_EQ(who, record);
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
