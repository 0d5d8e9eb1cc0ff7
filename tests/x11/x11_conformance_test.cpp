// The backend conformance suite, run against the X11 backend on our Xvfb.
#include "support/backend_conformance.hpp"
#include "x11_test_support.hpp"

namespace {

INSTANTIATE_TEST_SUITE_P(X11, BackendConformance,
                         ::testing::Values(test_support::BackendFactory{
                             "xvfb",
                             [] { return pf::clipboard::makeX11Clipboard(x11_test::options()); }}),
                         test_support::BackendFactoryName());

}  // namespace
