#pragma once

namespace tool::laser {

// Switches both of its lines on. While the process is stopped (Ctrl-Z) the laser is off; when the
// process goes on, so does the laser. False if a line cannot be driven; one of them may be on then.
bool On();

// False if a line cannot be driven.
bool Off();

}  // namespace tool::laser
