// Knows no proto file: learns the contract from the gateway, with a client of gRPC's
// server reflection in the version that the second argument names, and calls by that.
import grpc from "@grpc/grpc-js";
import { GrpcReflection } from "grpc-js-reflection-client";

const credentials = grpc.credentials.createInsecure();
const [version, address] = process.argv.slice(2);
const reflection = new GrpcReflection(address, credentials, {}, version);
for (const name of (await reflection.listServices()).sort()) console.log(name);

const methods = await reflection.listMethods("rpc.BrowserWindow");
console.log("methods:", methods.length);

const descriptor = await reflection.getDescriptorBySymbol("rpc.BrowserWindow");
const { rpc } = descriptor.getPackageObject({ keepCase: true });
const windows = new rpc.BrowserWindow(address, credentials);
windows.GetTitle({ value: 1 }, { deadline: Date.now() + 5000 }, (error, title) => {
  console.log(error ? error.message : title.value);
  process.exit();
});
