// Reading the event stream back: what a load run's parent does with the
// lines its users write.
#ifndef ORBELLE_RUNNER_EVENT_READER_H
#define ORBELLE_RUNNER_EVENT_READER_H

#include <string_view>

#include "tools/runner/events.h"

namespace runner {

// Reads one line of the stream (without its line end) into event. Keys it
// does not know are passed over, so that newer writers stay readable; a
// kind it does not know reads as "other". False for anything that is not a
// flat JSON object, and for a line without kind or name.
bool read_event(std::string_view line, Event &event);

}  // namespace runner

#endif
