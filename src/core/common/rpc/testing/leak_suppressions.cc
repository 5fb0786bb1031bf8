// Names the allocations that LeakSanitizer must not report.

// An event stream never frees the message that a frame is parsed into. See
// event_stream.h.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:torvane::EventStream<*>::NewRequest\n";
}
