#pragma once

// The transcript in the file that TESSALINE_BOARD_TRANSCRIPT names. The first process that has the
// variable writes this file. Its children inherit the variable, and each of them that used a device
// writes a file of its own beside it: log.txt, log.i2cget-1234.txt. For a caller inside the board.
namespace board {

// At the start of the process. Returns whether the variable names a file.
bool StartTranscriptFile();

// Whether this process has one. False in the child of a vfork, whose memory is its parent's. May be
// called from anywhere.
bool HasTranscriptFile();

// Adds what the file does not have yet.
void WriteTranscriptFile();

// The caller has written all events so far to this path; if it is the file, it has them.
void TranscriptWasSaved(const char* path);

}  // namespace board
