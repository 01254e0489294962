#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <type_traits>

#include "AllocationProbe.h"
#include "QDOException.h"
#include "QDOObject.h"

namespace {

constexpr const char* kMessages[] = {
    "Unknown Exception",      "Not Enough Memory",      "Null Dereference", "Unexpected Type",
    "Member Missing",         "Size Overflow",          "Invalid Context",  "Invalid Proxy Object",
    "Invalid Cast Exception", "Not Enough Information", "Object Not Found", "Invalid Content",
    "Element already exists", "Invalid JSON Structure",
};

}  // namespace

static_assert(std::is_base_of_v<std::exception, QDOException>);
static_assert(std::is_base_of_v<QDOException, QDOObjectException>);
static_assert(std::is_nothrow_copy_constructible_v<QDOObjectException>);

TEST(QDOExceptionTest, EachCodeHasItsMessage) {
  for (int code = 0; code < 14; ++code) {
    EXPECT_STREQ(QDOException(code).what(), kMessages[code]) << code;
    EXPECT_EQ(QDOException(code).getCode(), code);
  }
}

TEST(QDOExceptionTest, CodesAboveTheTableSayNotEnoughInformation) {
  for (const int code : {14, 15, 256, std::numeric_limits<int>::max()}) {
    EXPECT_STREQ(QDOException(code).what(), "Not Enough Information") << code;
    EXPECT_EQ(QDOException(code).getCode(), code);
  }
}

TEST(QDOExceptionTest, NegativeCodesSayNotEnoughInformation) {
  for (const int code : {-1, -5, -14, std::numeric_limits<int>::min()}) {
    EXPECT_STREQ(QDOException(code).what(), "Not Enough Information") << code;
    EXPECT_EQ(QDOException(code).getCode(), code);
  }
}

TEST(QDOExceptionTest, MessageIsStaticText) {
  const char* message = QDOException(2).what();
  EXPECT_EQ(message, QDOException(2).what());
}

TEST(QDOExceptionTest, ObjectExceptionHasTheMessageOfItsCodeAlone) {
  const QDOObject value;
  for (int code = -1; code < 15; ++code) {
    try {
      throw QDOObjectException(code, &value);
    } catch (const QDOException& error) {
      EXPECT_STREQ(error.what(), QDOException(code).what());
      EXPECT_EQ(error.getCode(), code);
    }
  }
}

TEST(QDOExceptionTest, ObjectExceptionNamesItsObjectOrNone) {
  const QDOObject value;
  EXPECT_EQ(QDOObjectException(3, &value).getObject(), &value);
  EXPECT_EQ(QDOObjectException(3, nullptr).getObject(), nullptr);
}

TEST(QDOExceptionTest, ObjectExceptionDoesNotTouchItsObject) {
  auto value = std::make_unique<QDOObject>();
  const QDOObjectException error(2, value.get());
  value.reset();
  const QDOObjectException copy(error);
  EXPECT_STREQ(copy.what(), "Null Dereference");
}

TEST(QDOExceptionTest, PrototypeIsOneObjectOfCode1) {
  EXPECT_EQ(&QDOException::NotEnoughMemory(), &QDOException::NotEnoughMemory());
  EXPECT_EQ(QDOException::NotEnoughMemory().getCode(), 1);
  EXPECT_STREQ(QDOException::NotEnoughMemory().what(), "Not Enough Memory");
}

TEST(QDOExceptionTest, ThrownOutOfMemoryIsACopyOfThePrototype) {
  QDOObject value;
  AllocationProbe::failNth(1);
  try {
    value.createVector();
    ADD_FAILURE() << "nothing thrown";
  } catch (const QDOException& error) {
    EXPECT_EQ(error.getCode(), 1);
    EXPECT_NE(&error, &QDOException::NotEnoughMemory());
    EXPECT_EQ(dynamic_cast<const QDOObjectException*>(&error), nullptr);
  }
}

TEST(QDOExceptionTest, HandlerOfObjectExceptionsSeesIndexingButNotGetMap) {
  QDOObject value;
  EXPECT_THROW(value["k"], QDOObjectException);
  try {
    value.getMap();
    ADD_FAILURE() << "nothing thrown";
  } catch (const QDOObjectException&) {
    ADD_FAILURE() << "getMap() named the value";
  } catch (const QDOException& error) {
    EXPECT_EQ(error.getCode(), 3);
  }
}

TEST(QDOExceptionTest, MakingAndReadingExceptionsAllocatesNothing) {
  const long before = AllocationProbe::made();
  const QDOObjectException error(7, nullptr);
  const QDOException copy(error);
  EXPECT_STREQ(copy.what(), error.what());
  EXPECT_EQ(AllocationProbe::made(), before);
}
