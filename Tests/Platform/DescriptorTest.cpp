#include <fcntl.h>
#include <gtest/gtest.h>

#include "Descriptor.h"
#include "Support.h"

namespace {

TEST(Descriptor, IsClosedByItsLastOwnerOnly) {
  const int before = OpenDescriptors();
  {
    Descriptor first(open("/dev/null", O_RDONLY | O_CLOEXEC));
    {
      const Descriptor second(first.Release());
      EXPECT_TRUE(second);
      EXPECT_FALSE(first);
      EXPECT_EQ(OpenDescriptors(), before + 1);
    }
    EXPECT_EQ(OpenDescriptors(), before);
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(Descriptor, OfNumberZeroIsClosed) {
  const Descriptor input(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  { const Descriptor zero(dup2(*input, STDIN_FILENO)); }
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  EXPECT_EQ(dup2(*input, STDIN_FILENO), STDIN_FILENO);
}

}  // namespace
