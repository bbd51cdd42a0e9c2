// main() of the tests on the fake of DXGI's calls.
#include "dxgi/fake_dxgi.h"
#include "release_check.h"

int main(int argc, char** argv) {
  namespace fake = vemora::platform::fake_dxgi;
  return vemora::platform::fakes::RunTestsCheckingReleases(
      argc, argv, {fake::reset, fake::live_objects, fake::misuse});
}
