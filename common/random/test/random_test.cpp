#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "common/random/random.hpp"

namespace quen::common::random {
namespace {

using detail::MersenneTwisterEngine;
using detail::s_random;

TEST(Random, GeneratorIsTheThreadsOwnVariable) {
  EXPECT_EQ(&MersenneTwisterEngine(), &s_random);
  std::thread([] { EXPECT_EQ(&MersenneTwisterEngine(), &s_random); }).join();
  const std::mt19937* other = nullptr;
  std::thread([&] { other = &MersenneTwisterEngine(); }).join();
  EXPECT_NE(other, nullptr);
}

TEST(Random, ThreadContinuesItsOwnSequence) {
  s_random.seed(7);
  std::mt19937 expected(7);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(MersenneTwisterEngine()(), expected());
  std::thread([] { MersenneTwisterEngine()(); }).join();
  EXPECT_EQ(MersenneTwisterEngine()(), expected());
}

TEST(Random, ThreadsAreSeededDifferently) {
  // Eight 32-bit seeds: two are equal by chance once in 10⁸ runs.
  std::set<std::uint32_t> firsts;
  for (int i = 0; i < 8; ++i) {
    std::thread([&] { firsts.insert(static_cast<std::uint32_t>(MersenneTwisterEngine()())); }).join();
  }
  EXPECT_EQ(firsts.size(), 8U);
}

TEST(Random, FreshGeneratorIsOneSeededWithASingleValue) {
  // The seed is in word 0 of the fresh state: the standard seeding from it must give the whole state.
  std::thread([] {
    const std::mt19937 fresh = MersenneTwisterEngine();
    std::stringstream text;
    text << fresh;
    std::uint32_t word0 = 0;
    text >> word0;
    EXPECT_EQ(fresh, std::mt19937(word0));
  }).join();
}

TEST(Random, HostMayAssignTheGenerator) {
  s_random = std::mt19937(11);
  EXPECT_EQ(MersenneTwisterEngine()(), std::mt19937(11)());
}

}  // namespace
}  // namespace quen::common::random
