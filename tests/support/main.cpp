#include <gmock/gmock.h>
#include <signal.h>

// The child of a death test leaves in the middle of everything: what it did
// not free is no leak, and the report would change its exit status.
extern "C" int __lsan_is_turned_off() {
  return testing::internal::InDeathTestChild() ? 1 : 0;
}

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  // Like the retriever program: a failed write is seen as such.
  signal(SIGPIPE, SIG_IGN);
  return RUN_ALL_TESTS();
}
