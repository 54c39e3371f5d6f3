#pragma once
/// Every MPI call of the distributed state goes through check_mpi: its communicator returns
/// errors instead of aborting silently, and a failed call prints which rank and which call
/// failed, then aborts the whole job, so that no rank is left waiting on a partner that is gone.

#include <mpi.h>

namespace corvid::dist {

/// Does nothing when rc is MPI_SUCCESS; otherwise prints "corvid: rank R: <call> failed:
/// <MPI's message>" to stderr and calls MPI_Abort(comm, 1).
void check_mpi(int rc, const char* call, MPI_Comm comm);

}  // namespace corvid::dist
