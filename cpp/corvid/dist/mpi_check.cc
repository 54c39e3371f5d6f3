#include "corvid/dist/mpi_check.h"

#include <cstdio>
#include <cstdlib>

namespace corvid::dist {

void check_mpi(int rc, const char* call, MPI_Comm comm) {
  if (rc == MPI_SUCCESS) return;
  int rank = -1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  char text[MPI_MAX_ERROR_STRING];
  int length = 0;
  if (MPI_Error_string(rc, text, &length) != MPI_SUCCESS) length = 0;
  text[length] = '\0';
  std::fprintf(stderr, "corvid: rank %d: %s failed: %s\n", rank, call, text);
  std::fflush(stderr);
  MPI_Abort(comm, 1);
  std::abort();  // MPI_Abort does not return; this keeps the promise if it ever does
}

}  // namespace corvid::dist
