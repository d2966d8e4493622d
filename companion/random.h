// Reproducible random numbers for resampling (bootstrap, cross-validation folds).
//
// Generator: xoshiro256** (Blackman & Vigna 2018), state seeded from a 64-bit seed through
// splitmix64. Results depend only on the seed: the same seed gives the same stream on every
// platform and compiler. For parallel replicates, GetSeedUpdate derives an independent state per
// replicate number from (seed, replicate), so each replicate draws the same numbers whatever the
// number of threads and the order in which replicates run.
#pragma once

#include <cstdint>

struct RandomState {
  std::uint64_t s[4];
};

// Initialise a state from a seed (any value, 0 included).
void GetSeed(std::uint64_t seed, RandomState& state);
// State of replicate `stream` (0, 1, 2, ...) of a run started with `seed`.
void GetSeedUpdate(std::uint64_t seed, std::uint64_t stream, RandomState& state);
// Uniform double in the open interval (0, 1), 53 random bits.
double Random01(RandomState& state);
// Uniform integer in 0 .. n-1 (n >= 1), without modulo bias (Lemire 2019).
std::uint64_t RandomBelow(RandomState& state, std::uint64_t n);
