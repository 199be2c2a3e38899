#pragma once

/// Whether a read of the descriptor would give something at once; false at its end.
bool hasInput(int fd);

/// Reads what a process that has ended left in a pipe or in a terminal: all of that fits a buffer
/// of the kernel's, whereas a process that lives on may write without end. `readSome` reads once
/// and gives false when no more is wanted.
template <class Read>
void drain(int fd, const Read& readSome) {
    for (int round = 0; round < 64 && hasInput(fd) && readSome(); ++round) {
    }
}
