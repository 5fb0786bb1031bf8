// What Protocol Buffers has to say becomes records of LOG.
//
// By itself the library prints to standard error, past the log and whoever
// limits it. It does so for each string of a message that is not valid UTF-8,
// without a word on who has sent it. That is left out here: such a message does
// not parse, and who reads it says so, with the name of the sender.
//
// Sequence: records come on the thread that uses the library.
//
// Failure: none. The library ends the process after a fatal error, as before.

#ifndef TOOLS_CLI_PROTOBUF_LOG_H_
#define TOOLS_CLI_PROTOBUF_LOG_H_

namespace cli {

// Works from now on, for the whole process.
void RecordProtobufLog();

}  // namespace cli

#endif  // TOOLS_CLI_PROTOBUF_LOG_H_
