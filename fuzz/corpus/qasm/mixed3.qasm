OPENQASM 3.0;
include "stdgates.inc";
qubit[2] a; qubit b; bit[2] c; bit d;
/* comment */ ry((1+2)/3) a[0]; p(-0.5) b; swap a[0], b[0]; cz a[1], b[0];
rxx(0.1) a[0], a[1]; ryy(0.2) a[1], b[0]; id a[0]; x a[1]; y b[0]; z a[0]; s a[1]; t b;
d[0] = measure b[0];
measure a -> c;
