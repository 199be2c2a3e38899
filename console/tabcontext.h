#pragma once

#include "common/data.h"

/// Registers the words that the tab key offers with the line editor: those of the last command's
/// output, then those of the tables.
void addTabContext(const Data& lastData);
/// The same when a record has just joined the output.
void addNewTabContext(const Data& record, const Data& lastData);
