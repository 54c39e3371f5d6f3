#include "corvid/util/parallel.h"

#include <omp.h>

#include <stdexcept>
#include <string>

namespace corvid {

int num_threads() { return omp_get_max_threads(); }

void set_num_threads(int n) {
  if (n < 1) throw std::invalid_argument("number of threads must be at least 1, got " + std::to_string(n));
  omp_set_num_threads(n);
}

}  // namespace corvid
