// Each kernel of two kernel sets on one tile of the size the executor uses (2^15 amplitudes, in
// L2), the sets taking turns; a set's time is its best of 15 turns of 5 x 10 calls, the fairest
// reading on a shared machine. Prints a Markdown table, microseconds per call.
//
// Build: cmake -DCORVID_BUILD_BENCH=ON ...; run: bench_kernel_tiles [avx2 [avx512 [tile bits]]]
#include <chrono>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "corvid/sim/kernels/kernel_set.h"
#include "corvid/util/aligned_buffer.h"

namespace {

using namespace corvid;

template <class Real>
const BasicKernelSet<Real>& named(const std::string& name) {
  for (const BasicKernelSet<Real>* set : available_kernel_sets<Real>()) {
    if (set->name == name) return *set;
  }
  std::fprintf(stderr, "kernel set '%s' is unknown or not supported by this CPU\n", name.c_str());
  std::exit(2);
}

template <class Real>
void compare(const char* precision, const std::string& a_name, const std::string& b_name,
             unsigned bits) {
  using V = std::complex<Real>;
  const BasicKernelSet<Real>& a = named<Real>(a_name);
  const BasicKernelSet<Real>& b = named<Real>(b_name);
  const std::size_t size = std::size_t{1} << bits;
  AlignedBuffer<V> tile(size);
  auto reset = [&] {
    for (V& x : tile) x = {Real(1e-3), Real(1e-3)};
  };
  std::mt19937_64 rng(1);
  std::vector<V> table(256);
  for (std::size_t k = 0; k < table.size(); ++k) table[k] = std::polar(Real(1), Real(0.01 * k));
  std::vector<std::uint8_t> i8(size);
  std::vector<std::uint16_t> i16(size);
  for (std::size_t i = 0; i < size; ++i) {
    i8[i] = static_cast<std::uint8_t>(rng() % 40);
    i16[i] = static_cast<std::uint16_t>(rng() % 256);
  }
  // One gate per qubit: the unit part of an RX (the mixers' shape), an RX, a general matrix.
  const double c = std::cos(0.3), s = std::sin(0.3);
  std::vector<QubitMatrix> unit, rx, general;
  for (unsigned q = 0; q < bits; ++q) {
    unit.push_back({q, Matrix2{1, {0, -s / c}, {0, -s / c}, 1}});
    rx.push_back({q, Matrix2{c, {0, -s}, {0, -s}, c}});
    general.push_back({q, Matrix2{{c, 0.1}, {0.2, -s}, {0.3, -s}, {c, 0.4}}});
  }
  // The tile as 32 rows (high qubits applied in place), a gate on every row bit.
  const unsigned row_bits = 5;
  const std::size_t length = size >> row_bits;
  std::vector<V*> rows;
  for (std::size_t r = 0; r < (std::size_t{1} << row_bits); ++r)
    rows.push_back(tile.data() + r * length);
  const std::vector<QubitMatrix> row_gates(unit.begin(), unit.begin() + row_bits);

  using Kernel = std::function<void(const BasicKernelSet<Real>&)>;
  const std::pair<const char*, Kernel> kernels[] = {
      {"phase_table8",
       [&](auto& k) { k.phase_table8(tile.data(), i8.data(), table.data(), size); }},
      {"phase_table16",
       [&](auto& k) { k.phase_table16(tile.data(), i16.data(), table.data(), size); }},
      {"matrices_tile, unit parts", [&](auto& k) { k.matrices_tile(tile.data(), bits, unit); }},
      {"matrices_tile, RX", [&](auto& k) { k.matrices_tile(tile.data(), bits, rx); }},
      {"matrices_tile, general", [&](auto& k) { k.matrices_tile(tile.data(), bits, general); }},
      {"matrices_rows, unit parts",
       [&](auto& k) { k.matrices_rows(rows.data(), row_bits, length, row_gates); }},
  };
  for (const auto& [name, kernel] : kernels) {
    double best[2] = {1e9, 1e9};
    for (int turn = 0; turn < 15; ++turn) {
      reset();  // repeated products must not drift into subnormals
      for (int which = 0; which < 2; ++which) {
        for (int rep = 0; rep < 5; ++rep) {
          const auto start = std::chrono::steady_clock::now();
          for (int call = 0; call < 10; ++call) kernel(which ? b : a);
          const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
          best[which] = std::min(best[which], took.count() / 10);
        }
      }
    }
    std::printf("| %s | %s | %.1f | %.1f | %.2f |\n", precision, name, best[0] * 1e6, best[1] * 1e6,
                best[1] / best[0]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string a = argc > 1 ? argv[1] : "avx2", b = argc > 2 ? argv[2] : "avx512";
  const unsigned bits = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 15;
  std::printf("| precision | kernel, tile of 2^%u | %s us | %s us | %s / %s |\n", bits, a.c_str(),
              b.c_str(), b.c_str(), a.c_str());
  std::printf("|---|---|--:|--:|--:|\n");
  compare<double>("double", a, b, bits);
  compare<float>("single", a, b, bits);
}
