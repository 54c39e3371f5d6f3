#pragma once
// What the distributed tests share: the rank count, random problems and the XY pair orders.
#include <mpi.h>

#include <bit>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include "corvid/qaoa/term_list.h"

namespace corvid::dist {

inline int world_size() {
  int size = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  return size;
}

// Z terms of weight 0 to 3 with coefficients in [-1, 1]: a constant, every qubit, 2n pairs and
// n/2 triples, so that no two basis states tie by symmetry.
using Problem = TermList;

inline Problem random_problem(unsigned n, std::mt19937_64& rng) {
  std::uniform_real_distribution<double> coeff(-1.0, 1.0);
  Problem p;
  for (unsigned t = 0; t < 3 * n + 1 + n / 2; ++t) {
    const int weight = t == 0 ? 0 : t <= n ? 1 : t <= 3 * n ? 2 : 3;
    std::uint64_t mask = weight == 1 ? std::uint64_t{1} << (t - 1) : 0;
    while (std::popcount(mask) < weight) mask |= std::uint64_t{1} << rng() % n;
    p.masks.push_back(mask);
    p.coeffs.push_back(coeff(rng));
  }
  return p;
}

enum class Mixer { kX, kXyRing, kXyComplete };

// The XY mixers' pair orders: ring (even edges, odd edges, the closing edge) and complete.
inline std::vector<std::pair<unsigned, unsigned>> xy_pairs(Mixer mixer, unsigned n) {
  std::vector<std::pair<unsigned, unsigned>> pairs;
  if (mixer == Mixer::kXyRing) {
    for (unsigned first : {0u, 1u}) {
      for (unsigned i = first; i + 1 < n; i += 2) pairs.emplace_back(i, i + 1);
    }
    if (n > 2) pairs.emplace_back(n - 1, 0);
  } else if (mixer == Mixer::kXyComplete) {
    for (unsigned i = 0; i < n; ++i) {
      for (unsigned j = i + 1; j < n; ++j) pairs.emplace_back(i, j);
    }
  }
  return pairs;
}

}  // namespace corvid::dist
