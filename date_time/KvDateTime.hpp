// Everything the library offers, with the host interfaces it is used with.
#pragma once

// A program whose one include is this header prints what it formats.
#include <cstdio>

#include "date_time/Clock.hpp"
#include "date_time/DateTimeParser.hpp"
#include "date_time/DateTimeStruct.hpp"
#include "date_time/DateTimeStructFormatter.hpp"
#include "date_time/DateTimeUtilities.hpp"
#include "date_time/LeapSecondList.hpp"
#include "date_time/diagnostics/MessageIds.hpp"
#include "date_time/diagnostics/Raise.hpp"
#include "host/diag/Diagnostic.hpp"
#include "host/diag/MessageCatalog.hpp"
#include "host/fxp/FXP.hpp"
#include "host/typesys/DateTimeDefs.hpp"
#include "host/typesys/DateTimeEnums.hpp"
