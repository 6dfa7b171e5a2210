#pragma once

#include <functional>

#include "labelmgr/model/context.h"
#include "state/options.h"
#include "state/records.h"

// Answers the records that are wanted, by those that are present.
using WantedRecords = std::function<Records(const Records& present)>;

// Makes what users set what is wanted, in one change, and prints what that changes; with
// --check only prints it, and with it the labels that would change. Answers kDifferent
// when there was something to do. Failures throw OperationError, and leave nothing
// changed; but for PartlyDone, which see.
Status bringAbout(const Context& context, const WantedRecords& wanted, const Options& options);
