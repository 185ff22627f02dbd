// The growable vector: growth, order, copy lengths, failure records and
// storage failures that leave the vector as it was.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "vector.hpp"

namespace {

struct Item {
  int32_t words[6];
};

std::string lastRecord() {
  std::ifstream in(xcsLastFailureRecord());
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class VectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    xcsInitialize(48, 1030, 0, 0, 0);
    xcsSetAllocFailure(0, -1);
    blocksBefore_ = xcsBlocksInUse();
  }
  void TearDown() override {
    xcsSetAllocFailure(0, -1);
    EXPECT_EQ(xcsBlocksInUse(), blocksBefore_) << "blocks leaked";
  }
  int64_t blocksBefore_ = 0;
};

TEST_F(VectorTest, CreateLaysOutSlotsAfterTheTable) {
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_OK);
  EXPECT_EQ(memcmp(v->StrucId, "ZVEC", 4), 0);
  EXPECT_EQ(v->Length, static_cast<int32_t>(sizeof(zaiVECTOR)));
  EXPECT_EQ(v->Capacity, 40);
  EXPECT_EQ(v->Count, 0);
  EXPECT_EQ(v->ElementSize, 24);
  EXPECT_EQ(v->Stride, 24);
  char *places = reinterpret_cast<char *>(v->Slots + 40);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(v->Slots[i], places + i * 24) << i;
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, FortyFirstAddDoublesCapacityAndKeepsOrder) {
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_OK);
  for (int32_t i = 0; i < 41; ++i) {
    Item e = {{i, i * 2, i * 3, i * 4, i * 5, i * 6}};
    ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
    EXPECT_EQ(v->Capacity, i < 40 ? 40 : 80);
  }
  EXPECT_EQ(v->Count, 41);
  char *places = reinterpret_cast<char *>(v->Slots + 80);
  for (int32_t i = 0; i < 80; ++i) ASSERT_EQ(v->Slots[i], places + i * 24);
  for (int32_t i = 0; i < 41; ++i) {
    const Item *e = static_cast<const Item *>(zaiVectorAt(v, i));
    EXPECT_EQ(e->words[0], i);
    EXPECT_EQ(e->words[5], i * 6);
  }
  for (int32_t i = 41; i < 161; ++i) {
    Item e = {{i, 0, 0, 0, 0, 0}};
    ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  }
  EXPECT_EQ(v->Capacity, 160 * 2);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, RemoveShiftsLaterElementsDown) {
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(4, 24, &v), ZAI_VEC_OK);
  for (int32_t i = 0; i < 3; ++i) {
    Item e = {{10 + i, 0, 0, 0, 0, 0}};
    ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  }
  // The last element moves nothing: the place of element 1 keeps its bytes.
  ASSERT_EQ(zaiVectorRemoveAt(v, 2), ZAI_VEC_OK);
  EXPECT_EQ(v->Count, 2);
  EXPECT_EQ(static_cast<const Item *>(v->Slots[2])->words[0], 12);
  Item e = {{12, 0, 0, 0, 0, 0}};
  ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  ASSERT_EQ(zaiVectorRemoveAt(v, 0), ZAI_VEC_OK);
  EXPECT_EQ(v->Count, 2);
  EXPECT_EQ(static_cast<const Item *>(zaiVectorAt(v, 0))->words[0], 11);
  EXPECT_EQ(static_cast<const Item *>(zaiVectorAt(v, 1))->words[0], 12);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, AddCopiesElementSizeAndSetCopiesStride) {
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(2, 22, &v), ZAI_VEC_OK);
  EXPECT_EQ(v->Stride, 24);
  char fill[24], head[24];
  memset(fill, 'S', sizeof fill);
  memset(head, 'A', 22);
  head[22] = head[23] = 'Z';
  ASSERT_EQ(zaiVectorAdd(v, head), ZAI_VEC_OK);
  ASSERT_EQ(zaiVectorSetAt(v, fill, 0), ZAI_VEC_OK);
  EXPECT_EQ(memcmp(v->Slots[0], fill, 24), 0) << "set copies the whole stride";
  ASSERT_EQ(zaiVectorRemoveAt(v, 0), ZAI_VEC_OK);
  ASSERT_EQ(zaiVectorAdd(v, head), ZAI_VEC_OK);
  const char *place = static_cast<const char *>(v->Slots[0]);
  EXPECT_EQ(memcmp(place, head, 22), 0);
  EXPECT_EQ(place[22], 'S') << "add copies only the element size";
  EXPECT_EQ(place[23], 'S');
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, IndexOutOfRangeIsRecordedAndChangesNothing) {
  zaiVECTOR *v = nullptr;
  ASSERT_EQ(zaiVectorCreate(4, 24, &v), ZAI_VEC_OK);
  Item e = {{7, 0, 0, 0, 0, 0}};
  ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  Item other = {{9, 9, 9, 9, 9, 9}};
  for (int32_t bad : {-1, 1}) {
    std::string before = xcsLastFailureRecord();
    EXPECT_EQ(zaiVectorRemoveAt(v, bad), ZAI_VEC_BAD_INDEX);
    ASSERT_NE(before, xcsLastFailureRecord()) << "a record is written";
    std::string rec = lastRecord();
    EXPECT_NE(rec.find("Invalid index"), std::string::npos) << rec;
    EXPECT_NE(rec.find("zaiVectorRemoveAt"), std::string::npos) << rec;
    EXPECT_EQ(zaiVectorSetAt(v, &other, bad), ZAI_VEC_BAD_INDEX);
    EXPECT_NE(lastRecord().find("zaiVectorSetAt"), std::string::npos);
  }
  EXPECT_EQ(v->Count, 1);
  EXPECT_EQ(static_cast<const Item *>(zaiVectorAt(v, 0))->words[0], 7);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, BlockWithoutEyeCatcherIsRefusedByEveryOperation) {
  alignas(8) unsigned char fake[64] = {};
  memcpy(fake, "ZVEX", 4);
  zaiVECTOR *v = reinterpret_cast<zaiVECTOR *>(fake);
  v->Count = 2;
  v->Length = 28;
  Item e = {};
  unsigned char copy[64];
  memcpy(copy, fake, sizeof copy);

  EXPECT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_BAD_BLOCK);
  EXPECT_NE(lastRecord().find("Invalid zaiVECTOR"), std::string::npos);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_BAD_BLOCK);
  // With an index the foreign block's count admits, only the eye-catcher fails.
  EXPECT_EQ(zaiVectorRemoveAt(v, 1), ZAI_VEC_BAD_BLOCK);
  EXPECT_EQ(zaiVectorSetAt(v, &e, 0), ZAI_VEC_BAD_BLOCK);
  // Otherwise the index test records a second failure and wins.
  EXPECT_EQ(zaiVectorRemoveAt(v, 5), ZAI_VEC_BAD_INDEX);
  EXPECT_NE(lastRecord().find("Invalid index"), std::string::npos);
  EXPECT_EQ(memcmp(copy, fake, sizeof copy), 0) << "a foreign block is never written";
}

TEST_F(VectorTest, StorageFailuresLeaveNothingBehind) {
  zaiVECTOR *v = nullptr;
  // Data block, then control block: both failures give the storage code.
  for (int nth : {1, 2}) {
    xcsSetAllocFailure(nth, -1);
    EXPECT_EQ(zaiVectorCreate(40, 24, &v), ZAI_VEC_NO_STORAGE) << nth;
    EXPECT_EQ(v, nullptr);
    xcsSetAllocFailure(0, -1);
  }
  ASSERT_EQ(zaiVectorCreate(1, 24, &v), ZAI_VEC_OK);
  Item e = {{1, 0, 0, 0, 0, 0}};
  ASSERT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  void **slots = v->Slots;
  xcsSetAllocFailure(1, -1);
  EXPECT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_NO_STORAGE);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(v->Capacity, 1);
  EXPECT_EQ(v->Count, 1);
  EXPECT_EQ(v->Slots, slots);
  EXPECT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_OK);
  EXPECT_EQ(v->Capacity, 2);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

TEST_F(VectorTest, CreateRefusesNegativeSizesAndEmptyVectorsGrow) {
  zaiVECTOR *v = nullptr;
  EXPECT_EQ(zaiVectorCreate(-1, 24, &v), ZAI_VEC_NO_STORAGE);
  EXPECT_EQ(zaiVectorCreate(4, -24, &v), ZAI_VEC_NO_STORAGE);
  EXPECT_EQ(zaiVectorCreate(INT32_MAX, INT32_MAX - 3, &v), ZAI_VEC_NO_STORAGE);
  ASSERT_EQ(zaiVectorCreate(0, 8, &v), ZAI_VEC_OK);
  int64_t x = 42;
  ASSERT_EQ(zaiVectorAdd(v, &x), ZAI_VEC_OK);
  EXPECT_EQ(v->Capacity, 1);
  EXPECT_EQ(*static_cast<int64_t *>(zaiVectorAt(v, 0)), 42);
  EXPECT_EQ(zaiVectorDestroy(v), ZAI_VEC_OK);
}

}  // namespace
