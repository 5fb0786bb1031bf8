// Calls Close with a deadline that ends before this program answers whether the
// window may close. As long as its subscription has not arrived, nobody is asked,
// and the window closes: then it opens another one.
import grpc from "@grpc/grpc-js";
import loader from "@grpc/proto-loader";

const { rpc } = grpc.loadPackageDefinition(
  loader.loadSync(["rpc/browser/browser_window.proto", "rpc/directory/window_directory.proto"], {
    includeDirs: ["contract"], keepCase: true, longs: String,
  }));
const credentials = grpc.credentials.createInsecure();
const windows = new rpc.BrowserWindow(process.argv[2], credentials);
const directory = new rpc.directory.WindowDirectory(process.argv[2], credentials);
const call = (client, method, request, options) => new Promise((resolve, reject) => {
  client[method](request, options, (error, response) => {
    if (error) reject(error); else resolve(response);
  });
});

const questions = windows.OnCloseWindow();
const asked = new Promise((resolve) => questions.on("data", resolve));
let window;
for (let closed = true; closed;) {
  window = (await call(directory, "OpenWindow", {}, {})).browser_id;
  questions.write({ browser_id: window, subscribe: true });
  try {
    await call(windows, "Close", window, { deadline: Date.now() + 200 });
  } catch (error) {
    console.log(grpc.status[error.code]);
    closed = false;
  }
}
if ((await asked).browser_id.value === window.value) console.log("asked about that window");
questions.end();
windows.getChannel().close();
directory.getChannel().close();
