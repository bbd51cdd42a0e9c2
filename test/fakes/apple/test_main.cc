// main() of the tests on the fake of Apple's calls.
#include "apple/fake_apple.h"
#include "release_check.h"

int main(int argc, char** argv) {
  namespace fake = vemora::platform::fake;
  return vemora::platform::fakes::RunTestsCheckingReleases(
      argc, argv, {fake::reset, fake::live_objects, fake::misuse});
}
