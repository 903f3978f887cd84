#pragma once

// The host's fixed-point arithmetic library: storage types (DataType and the
// fxpDataTypeProp record), rounding and overflow control (MathMode,
// MathControl, FixptRangeMath::FixptRangeMathLogger) and values (DataValue).
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/MathControl.hpp"
