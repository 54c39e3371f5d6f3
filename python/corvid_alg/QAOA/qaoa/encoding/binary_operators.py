"""The operators of one binary variable: x_n = (I - Z_n)/2 and 1 - x_n = (I + Z_n)/2."""

import corvid


def p_1(n):
    """The operator of binary variable x_n: (I - Z_n)/2, eigenvalue 1 where qubit n is |1>.

    >>> print(p_1(0))
    {
    "" : 0.500000,
    "Z0" : -0.500000
    }
    """
    return corvid.PauliOperator(0.5) - corvid.PauliOperator("Z" + str(n), 0.5)


def p_0(n):
    """The operator of the complement 1 - x_n: (I + Z_n)/2, eigenvalue 1 where qubit n is |0>."""
    return corvid.PauliOperator(0.5) + corvid.PauliOperator("Z" + str(n), 0.5)
