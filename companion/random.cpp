#include "companion/random.h"

namespace {

std::uint64_t splitmix64(std::uint64_t& x) {
  std::uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

inline std::uint64_t rotl(std::uint64_t x, int k) {
  return (x << k) | (x >> (64 - k));
}

std::uint64_t next(RandomState& st) {
  std::uint64_t* s = st.s;
  const std::uint64_t result = rotl(s[1] * 5, 7) * 9;
  const std::uint64_t t = s[1] << 17;
  s[2] ^= s[0];
  s[3] ^= s[1];
  s[1] ^= s[2];
  s[0] ^= s[3];
  s[2] ^= t;
  s[3] = rotl(s[3], 45);
  return result;
}

}  // namespace

void GetSeed(std::uint64_t seed, RandomState& state) {
  std::uint64_t x = seed;
  for (auto& w : state.s) w = splitmix64(x);
}

void GetSeedUpdate(std::uint64_t seed, std::uint64_t stream, RandomState& state) {
  // Mix the replicate number into the seed through one splitmix64 round so that nearby streams
  // start from unrelated states.
  std::uint64_t x = stream;
  GetSeed(seed ^ splitmix64(x), state);
}

double Random01(RandomState& state) {
  // 53 random bits, shifted by half a unit so that neither 0 nor 1 can occur.
  return (static_cast<double>(next(state) >> 11) + 0.5) * 0x1.0p-53;
}

std::uint64_t RandomBelow(RandomState& state, std::uint64_t n) {
  if (n <= 1) return 0;
  unsigned __int128 m = static_cast<unsigned __int128>(next(state)) * n;
  std::uint64_t low = static_cast<std::uint64_t>(m);
  if (low < n) {
    const std::uint64_t threshold = (0 - n) % n;
    while (low < threshold) {
      m = static_cast<unsigned __int128>(next(state)) * n;
      low = static_cast<std::uint64_t>(m);
    }
  }
  return static_cast<std::uint64_t>(m >> 64);
}
