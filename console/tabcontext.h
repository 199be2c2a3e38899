#pragma once

#include "common/data.h"
#include "console/slotwords.h"

#include <cstdint>
#include <map>

/// Registers the words that the tab key offers with the line editor: those of the last command's
/// output, then those of the tables, all again whenever a record has joined the output.
///
/// What adding all words again would change is found out without doing so where possible: nothing,
/// as long as the pool holds them all. Else the slots are replayed. For the thread that handles
/// records.
class TabContext {
  public:
    /// Registers the words of the tables.
    TabContext();

    /// To be called with the output when a record has joined it and what is too much has left it,
    /// before the output is merged; true when that has done it, else call replay once it is.
    bool offer(const Data& kept);
    void replay(const Data& kept);
    /// To be called when the output has been cleared.
    void forget() { slots.clear(); }

  private:
    /// The pool holds all words of the output and of the tables.
    bool complete = false;
    std::map<int, SlotWords> slots; // by slot number
};
