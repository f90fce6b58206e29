// SPDX-License-Identifier: MIT
// Which kernel build each class of CPU gets: a CPU that does not report an
// extension never gets the build that needs it, one that does gets the
// fastest; and the running CPU gets what its own features say. Run under
// qemu-user with older CPU models (tests/CMakeLists.txt), where
// SKELDA_CPU_LACKS names the extensions the model must not report.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "rsmpl/cpu.h"

namespace {

using rsmpl::CpuFeatures;

TEST(KernelDispatch, EachCpuClassGetsTheFastestBuildItRuns) {
  const struct {
    CpuFeatures features;
    rsmpl::Isa x86, arm64, armhf;  // the build each architecture picks
  } cases[] = {
      {{false, false}, rsmpl::kIsaSse2, rsmpl::kIsaNeon, rsmpl::kIsaScalar},
      {{true, false}, rsmpl::kIsaAvx2, rsmpl::kIsaNeon, rsmpl::kIsaScalar},
      {{false, true}, rsmpl::kIsaSse2, rsmpl::kIsaNeon, rsmpl::kIsaNeon},
      {{true, true}, rsmpl::kIsaAvx2, rsmpl::kIsaNeon, rsmpl::kIsaNeon},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(::testing::Message() << "avx2 " << c.features.avx2 << ", neon " << c.features.neon);
#if defined(__x86_64__)
    const rsmpl::Isa want = c.x86;
#elif defined(__aarch64__)
    const rsmpl::Isa want = c.arm64;
#elif defined(__arm__)
    const rsmpl::Isa want = c.armhf;
#else
    const rsmpl::Isa want = rsmpl::kIsaScalar;
#endif
    EXPECT_EQ(rsmpl::fastest_isa(c.features), want);
    // Every build up to the pick that this binary holds runs; none above it.
    for (int isa = 0; isa < rsmpl::kIsaCount; ++isa) {
      const bool runs = rsmpl::cpu_runs(c.features, rsmpl::Isa(isa));
      if (isa > want) EXPECT_FALSE(runs) << "isa " << isa;
      if (isa == want || isa == rsmpl::kIsaScalar) EXPECT_TRUE(runs) << "isa " << isa;
    }
  }
}

TEST(KernelDispatch, TheRunningCpuGetsWhatItReports) {
  const CpuFeatures f = rsmpl::cpu_features();
#if defined(__x86_64__)
  EXPECT_EQ(f.avx2, __builtin_cpu_supports("avx2") != 0);
  EXPECT_STREQ(rsmpl::active_kernels().name, f.avx2 ? "avx2" : "sse2");
  // The model qemu emulates really lacks what it should.
  if (const char *lacks = std::getenv("SKELDA_CPU_LACKS")) {
    std::istringstream names(lacks);
    std::string name;
    while (std::getline(names, name, ',')) {
      const bool has = name == "avx2"     ? __builtin_cpu_supports("avx2")
                       : name == "avx"    ? __builtin_cpu_supports("avx")
                       : name == "sse4.1" ? __builtin_cpu_supports("sse4.1")
                       : name == "ssse3"  ? __builtin_cpu_supports("ssse3")
                                          : true;
      EXPECT_FALSE(has) << name;
    }
  }
#endif
  EXPECT_EQ(&rsmpl::active_kernels(), rsmpl::kernel_set(rsmpl::fastest_isa(f)));
  for (int isa = 0; isa < rsmpl::kIsaCount; ++isa)
    EXPECT_EQ(rsmpl::kernel_set(rsmpl::Isa(isa)) != nullptr, rsmpl::cpu_runs(f, rsmpl::Isa(isa))) << isa;
}

}  // namespace
