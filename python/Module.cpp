// The kvdatetime._kvdatetime extension module (the package kvdatetime
// re-exports it): the library's time points, leap-second
// tables and formatting for Python, one value at a time (Scalar.cpp) or an
// array at a time (Batch.cpp), on the types and helpers of Common.cpp.
#include "python/Common.hpp"

PYBIND11_MODULE(_kvdatetime, m) {
  m.doc() =
      "Time points of the KvDateTime library: exact stored values in double or "
      "fixed point, calendar readings in TAI, UTC, TT and TDB, leap seconds "
      "and formatting, one value or a NumPy array at a time.";
  m.attr("__version__") = KVDT_VERSION;
  kvpy::bindTypes(m);
  kvpy::bindScalar(m);
  kvpy::bindBatch(m);
}
