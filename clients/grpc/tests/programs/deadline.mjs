// Calls Close with a deadline that ends before this program answers whether the
// window may close. Where its subscription has not arrived, or the call not in time,
// nobody is asked: then it tries another window.
import grpc from "@grpc/grpc-js";
import loader from "@grpc/proto-loader";

const { rpc } = grpc.loadPackageDefinition(
  loader.loadSync([
    "rpc/browser/browser_window.proto",
    "rpc/directory/window_directory.proto",
    "rpc/status/server_status.proto",
  ], { includeDirs: ["contract"], keepCase: true, longs: String }));
const credentials = grpc.credentials.createInsecure();
const windows = new rpc.BrowserWindow(process.argv[2], credentials);
const directory = new rpc.directory.WindowDirectory(process.argv[2], credentials);
const status = new rpc.status.ServerStatus(process.argv[2], credentials);
const call = (client, method, request, options = {}) => new Promise((resolve, reject) => {
  client[method](request, options, (error, response) => {
    if (error) reject(error); else resolve(response);
  });
});

const questions = windows.OnCloseWindow();
const asked = new Promise((resolve) => questions.on("data", resolve));
const pending = async () => (await call(status, "GetStatus", {})).total.pending_questions;
let code;
while (!(await pending())) {
  const window = (await call(directory, "OpenWindow", {})).browser_id;
  questions.write({ browser_id: window, subscribe: true });
  try {
    await call(windows, "Close", window, { deadline: Date.now() + 200 });
  } catch (error) {
    code = error.code;
  }
}
console.log(grpc.status[code]);
if ((await asked).question) console.log("asked");
questions.end();
windows.getChannel().close();
directory.getChannel().close();
status.getChannel().close();
