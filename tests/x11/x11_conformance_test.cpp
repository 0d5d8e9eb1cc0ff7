// The backend conformance suite, run against the X11 backend on our Xvfb.
#include "support/backend_conformance.hpp"
#include "x11_test_support.hpp"

namespace {

INSTANTIATE_TEST_SUITE_P(
    X11, BackendConformance,
    ::testing::Values(
        test_support::BackendFactory{
            "xvfb", [] { return pf::clipboard::makeX11Clipboard(x11_test::options()); }},
        // Everything above the threshold goes by INCR, also between our own connections.
        test_support::BackendFactory{"xvfb_small_incr",
                                     [] {
                                       auto o = x11_test::options();
                                       o.incrThresholdBytes = 4096;
                                       o.incrChunkBytes = 1000;
                                       return pf::clipboard::makeX11Clipboard(o);
                                     }}),
    test_support::BackendFactoryName());

}  // namespace
