// Everything the library offers, with the host interfaces it is used with:
// every installed header, and only those. The private headers (the constant
// tables, the calendar core, the floating-point and formatting helpers, the
// pattern grammar, the batch paths, the sine, the raising helpers) are not
// installed, and none of the headers below includes one. InstallTest.cmake
// holds this list against the installed set.
#pragma once

// Values, calendar arithmetic and time points.
#include "date_time/DateTime.hpp"
#include "date_time/DateTimeStruct.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/Export.hpp"

// Epoch converters.
#include "date_time/DateTimeConverter.hpp"

// Whole arrays at once.
#include "date_time/Batch.hpp"

// Leap seconds and time standards.
#include "date_time/LeapSecondList.hpp"
#include "date_time/LeapSecondTableData.hpp"
#include "date_time/LeapSecondUtilities.hpp"
#include "date_time/TimeStandardConverter.hpp"

// Text: formatting, parsing and storage type names.
#include "date_time/DateTimeParser.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/StorageTypeName.hpp"

// Message identifiers.
#include "date_time/diagnostics/MessageIds.hpp"

// The convenience layer on top of the classes above: a model's clock in one
// object, and checked time points for readings that come from people. A
// program whose one include is this header prints what it formats.
#include <cstdio>

#include "date_time/Clock.hpp"

// Host interfaces: diagnostics, fixed point, type system, arrays.
#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "host/fxp/DataType.hpp"
#include "host/fxp/DataValue.hpp"
#include "host/fxp/FXP.hpp"
#include "host/fxp/MathControl.hpp"
#include "host/typesys/DataTypeUtils.hpp"
#include "host/typesys/DateTimeDefs.hpp"
#include "host/typesys/DateTimeEnums.hpp"
#include "host/voarray/voArray.hpp"
