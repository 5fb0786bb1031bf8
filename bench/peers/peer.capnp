@0xb4c1f5a2d96e3087;

# What the benchmarks ask of Cap'n Proto: messages of the same content.

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("peer");

struct BrowserId {
  value @0 :Int64;
}

interface Answerer {
  closeWindow @0 (browserId :BrowserId, reason :UInt16) -> (allowed :Bool);
}

interface Watcher {
  closed @0 (browserId :BrowserId, reason :UInt16, title :Text);
}

interface Windows {
  isVisible @0 (browserId :BrowserId) -> (visible :Bool);

  # Publishes an event to everybody who watches.
  close @1 (browserId :BrowserId) -> (closed :Bool);

  watch @2 (browserId :BrowserId, watcher :Watcher);

  # Does not return while the answerer answers.
  answer @3 (browserId :BrowserId, answerer :Answerer);
}
