// Waits for two questions about window 1, beside those about the command "reload",
// and answers the later one first.
import grpc from "@grpc/grpc-js";
import loader from "@grpc/proto-loader";

const { rpc } = grpc.loadPackageDefinition(
  loader.loadSync("rpc/browser/browser_window.proto", {
    includeDirs: ["contract"], keepCase: true, longs: String,
  }));
const windows = new rpc.BrowserWindow(process.argv[2], grpc.credentials.createInsecure());
const questions = windows.OnCanExecuteCommand();
const answer = ({ browser_id, call_id }, allowed) =>
  questions.write({ browser_id, call_id, response: { allowed } });

const waiting = [];
questions.on("data", (asked) => {
  const { name } = asked.question.command;
  if (name === "reload") {
    answer(asked, true);
    return;
  }
  console.log("asked", name);
  waiting.push(asked);
  if (waiting.length < 2) return;
  answer(waiting[1], true);
  answer(waiting[0], false);
  questions.end();
});
questions.on("end", () => windows.getChannel().close());
questions.write({ browser_id: { value: 1 }, subscribe: true });
