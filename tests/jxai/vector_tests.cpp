// The growable vector: growth, order, copy lengths, failure records and
// storage failures that leave the vector as it was.
#include <gtest/gtest.h>
#include <jx/jxcs.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>

#include "vector.hpp"

namespace {

struct Item {
  int32_t words[6];
};

std::string lastRecord() {
  std::stringstream s;
  s << std::ifstream(xcsLastFailureRecord()).rdbuf();
  return s.str();
}

int32_t firstWord(const zaiVECTOR *v, int32_t i) {
  return static_cast<const Item *>(zaiVectorAt(v, i))->words[0];
}

// Every slot points at its place, the places following the slot table.
void expectLaidOut(const zaiVECTOR *v) {
  const char *places = reinterpret_cast<const char *>(v->Slots + v->Capacity);
  for (int32_t i = 0; i < v->Capacity; ++i)
    ASSERT_EQ(v->Slots[i], places + i * v->Stride) << "slot " << i;
}

class VectorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    xcsInitialize(48, 1030, 0, 0, 0);
    blocksBefore_ = xcsBlocksInUse();
  }
  void TearDown() override {
    xcsSetAllocFailure(0, -1);
    if (v_) {
      EXPECT_EQ(zaiVectorDestroy(v_), ZAI_VEC_OK);
    }
    EXPECT_EQ(xcsBlocksInUse(), blocksBefore_) << "blocks leaked";
  }
  zaiVECTOR *make(int32_t initial, int32_t size) {
    EXPECT_EQ(zaiVectorCreate(initial, size, &v_), ZAI_VEC_OK);
    return v_;
  }
  void add(int32_t first) {
    Item e = {{first, first * 2, first * 3, first * 4, first * 5, first * 6}};
    ASSERT_EQ(zaiVectorAdd(v_, &e), ZAI_VEC_OK);
  }
  zaiVECTOR *v_ = nullptr;
  int64_t blocksBefore_ = 0;
};

TEST_F(VectorTest, FortyFirstAddDoublesCapacityAndKeepsOrder) {
  zaiVECTOR *v = make(40, 24);
  expectLaidOut(v);
  for (int32_t i = 0; i < 41; ++i) {
    add(i);
    EXPECT_EQ(v->Capacity, i < 40 ? 40 : 80);
  }
  EXPECT_EQ(v->Count, 41);
  expectLaidOut(v);
  for (int32_t i = 0; i < 41; ++i) {
    const Item *e = static_cast<const Item *>(zaiVectorAt(v, i));
    EXPECT_EQ(e->words[0], i);
    EXPECT_EQ(e->words[5], i * 6);
  }
  for (int32_t i = 41; i < 161; ++i) add(i);
  EXPECT_EQ(v->Capacity, 320);
}

TEST_F(VectorTest, AddCopiesElementSizeAndSetCopiesStride) {
  zaiVECTOR *v = make(2, 22);
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
  EXPECT_EQ(memcmp(v->Slots[0], "AAAAAAAAAAAAAAAAAAAAAASS", 24), 0) << "add copies 22 bytes";
}

TEST_F(VectorTest, IndexOutOfRangeIsRecordedAndChangesNothing) {
  zaiVECTOR *v = make(4, 24);
  add(7);
  Item other = {{9, 9, 9, 9, 9, 9}};
  for (int32_t bad : {-1, 1}) {
    const std::string before = xcsLastFailureRecord();
    EXPECT_EQ(zaiVectorRemoveAt(v, bad), ZAI_VEC_BAD_INDEX);
    ASSERT_NE(before, xcsLastFailureRecord()) << "a record is written";
    const std::string rec = lastRecord();
    EXPECT_NE(rec.find("Invalid index"), std::string::npos) << rec;
    EXPECT_NE(rec.find("zaiVectorRemoveAt"), std::string::npos) << rec;
    EXPECT_EQ(zaiVectorSetAt(v, &other, bad), ZAI_VEC_BAD_INDEX);
    EXPECT_NE(lastRecord().find("zaiVectorSetAt"), std::string::npos);
  }
  EXPECT_EQ(v->Count, 1);
  EXPECT_EQ(firstWord(v, 0), 7);
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

TEST_F(VectorTest, StorageFailuresAndImpossibleSizesLeaveNothingBehind) {
  // {initial space, element size, allocation made to fail}: the data block,
  // then the control block; then sizes no allocation can hold.
  const int32_t refused[][3] = {
      {40, 24, 1}, {40, 24, 2}, {-1, 24, 0}, {4, -24, 0}, {INT32_MAX, INT32_MAX - 3, 0}};
  for (const auto &r : refused) {
    SCOPED_TRACE(testing::Message() << r[0] << " x " << r[1] << ", failing " << r[2]);
    zaiVECTOR *v = nullptr;
    xcsSetAllocFailure(r[2], -1);
    EXPECT_EQ(zaiVectorCreate(r[0], r[1], &v), ZAI_VEC_NO_STORAGE);
    xcsSetAllocFailure(0, -1);
    EXPECT_EQ(v, nullptr);
  }
  // A vector created empty still grows; a failed growth changes nothing.
  zaiVECTOR *v = make(0, 24);
  add(1);
  EXPECT_EQ(v->Capacity, 1);
  EXPECT_EQ(firstWord(v, 0), 1);
  void **slots = v->Slots;
  xcsSetAllocFailure(1, -1);
  Item e = {};
  EXPECT_EQ(zaiVectorAdd(v, &e), ZAI_VEC_NO_STORAGE);
  xcsSetAllocFailure(0, -1);
  EXPECT_EQ(v->Capacity, 1);
  EXPECT_EQ(v->Count, 1);
  EXPECT_EQ(v->Slots, slots);
  add(2);
  EXPECT_EQ(v->Capacity, 2);
}

}  // namespace
