OPENQASM 2.0;
include "qelib1.inc";
gate rzz(theta) a, b { cx a, b; rz(theta) b; cx a, b; }
qreg q[3];
creg c[3];
h q;
rzz(0.5) q[0], q[1];
cx q[1], q[2]; rz(-pi/4) q[2]; cx q[1], q[2];
rx(-2*0.3) q;
u1(1e-3) q[0]; sdg q[1]; tdg q[2];
barrier q;
measure q -> c;
