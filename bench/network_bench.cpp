// Network observation costs beside their baselines:
//  - typeOfIP() beside inet_pton() plus the same table walk written inline;
//  - one store change delivered to an observer through MemoryStore, the run loop and the wrapper,
//    beside a bare GLib idle source dispatched by one loop iteration;
//  - a notification posted to one observer beside one direct std::function call (the name held in
//    a String, as a host keeps its constants, and also written as a literal at the call), and to
//    three observers beside three direct calls.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstring>
#include <functional>

#include "tq/network/ipv4_observer.h"
#include "tq/network/sc_dynamic_store.h"
#include "tq/platform/base/notification_center.h"
#include "tq/platform/store/memory_store.h"

namespace {

const char* kAddresses[] = {"192.168.1.20", "10.0.0.0", "8.8.8.8", "172.16.5.40", "240.1.2.3", "1.2.3.200"};

void BM_TypeOfIP(benchmark::State& state) {
  auto observer = tq::IPv4Observer::initWithStore(nullptr);
  std::vector<tq::String> addresses;
  for (const char* a : kAddresses) addresses.push_back(tq::String::fromUTF8(a));
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(observer->typeOfIP(addresses[i++ % addresses.size()]));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TypeOfIP);

void BM_TypeOfIP_Baseline_InetPton(benchmark::State& state) {
  static const struct {
    const char* net;
    int prefix;
    const char* label;
  } rows[] = {{"10.0.0.0", 8, "Private"},   {"172.16.0.0", 12, "Private"},    {"192.168.0.0", 16, "Private"},
              {"127.0.0.0", 8, "Loopback"}, {"169.254.0.0", 16, "Link-local"}, {"192.0.2.0", 24, "Test"},
              {"192.88.99.0", 24, "6to4 relay"}, {"198.18.0.0", 15, "Benchmark"}, {"240.0.0.0", 4, "Reserved"}};
  size_t i = 0;
  for (auto _ : state) {
    uint32_t ip;
    inet_pton(AF_INET, kAddresses[i++ % 6], &ip);
    const char* label = "Public";
    for (const auto& r : rows) {
      uint32_t net;
      inet_pton(AF_INET, r.net, &net);
      uint32_t mask = 0xFFFFFFFFu << ((32 - r.prefix) % 32);
      if ((mask & ip) == (mask & net)) {
        label = r.label;
        break;
      }
    }
    benchmark::DoNotOptimize(label);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_TypeOfIP_Baseline_InetPton);

struct Counter {
  int64_t calls = 0;
  void changed(const tq::String&) { ++calls; }
};

void BM_StoreChangeDelivered(benchmark::State& state) {
  GMainContext* context = g_main_context_new();
  g_main_context_push_thread_default(context);
  auto data = tq::MemoryStore::create();
  // The wrapper is kept by its registration; it lives to the end of the process by design.
  auto wrapper = std::make_shared<tq::SCDynamicStore>(data->connectionFactory());
  auto counter = std::make_shared<Counter>();
  wrapper->addObserver(counter, &Counter::changed, u"State:/Network/Interface/eth0/Link");
  int64_t n = 0;
  for (auto _ : state) {
    data->setValue(u"State:/Network/Interface/eth0/Link", tq::Dictionary{{u"Active", (++n & 1) != 0}});
    g_main_context_iteration(context, FALSE);
  }
  if (counter->calls != n) state.SkipWithError("a change was not delivered");
  state.SetItemsProcessed(state.iterations());
  g_main_context_pop_thread_default(context);
  g_main_context_unref(context);
}
BENCHMARK(BM_StoreChangeDelivered);

void BM_StoreChange_Baseline_GLibIdle(benchmark::State& state) {
  GMainContext* context = g_main_context_new();
  int64_t calls = 0;
  for (auto _ : state) {
    GSource* idle = g_idle_source_new();
    g_source_set_callback(
        idle, [](gpointer p) -> gboolean {
          ++*static_cast<int64_t*>(p);
          return G_SOURCE_REMOVE;
        },
        &calls, nullptr);
    g_source_attach(idle, context);
    g_source_unref(idle);
    g_main_context_iteration(context, FALSE);
  }
  benchmark::DoNotOptimize(calls);
  state.SetItemsProcessed(state.iterations());
  g_main_context_unref(context);
}
BENCHMARK(BM_StoreChange_Baseline_GLibIdle);

void BM_NotificationPostOneObserver(benchmark::State& state) {
  tq::NotificationCenter center;
  int64_t calls = 0;
  center.addObserverForName(u"EthernetActivatedNotification", nullptr, [&](const tq::Notification&) { ++calls; });
  center.addObserverForName(u"Other", nullptr, [&](const tq::Notification&) { ++calls; });
  const tq::String name(u"EthernetActivatedNotification");
  tq::Dictionary info{{u"interface", u"eth0"}};
  for (auto _ : state) center.postNotificationName(name, nullptr, info);
  if (calls != state.iterations()) state.SkipWithError("a post was not delivered once");
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NotificationPostOneObserver);

void BM_NotificationPostOneObserver_LiteralName(benchmark::State& state) {
  tq::NotificationCenter center;
  int64_t calls = 0;
  center.addObserverForName(u"EthernetActivatedNotification", nullptr, [&](const tq::Notification&) { ++calls; });
  tq::Dictionary info{{u"interface", u"eth0"}};
  for (auto _ : state) center.postNotificationName(u"EthernetActivatedNotification", nullptr, info);
  benchmark::DoNotOptimize(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NotificationPostOneObserver_LiteralName);

void BM_NotificationPostOneObserver_Baseline_DirectCall(benchmark::State& state) {
  int64_t calls = 0;
  std::function<void(const tq::Dictionary&)> block = [&](const tq::Dictionary&) { ++calls; };
  tq::Dictionary info{{u"interface", u"eth0"}};
  for (auto _ : state) {
    block(info);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NotificationPostOneObserver_Baseline_DirectCall);

void BM_NotificationPost(benchmark::State& state) {
  tq::NotificationCenter center;
  int64_t calls = 0;
  for (int i = 0; i < 3; ++i) center.addObserverForName(u"EthernetActivatedNotification", nullptr, [&](const tq::Notification&) { ++calls; });
  center.addObserverForName(u"Other", nullptr, [&](const tq::Notification&) { ++calls; });
  tq::Dictionary info{{u"interface", u"eth0"}};
  for (auto _ : state) center.postNotificationName(u"EthernetActivatedNotification", nullptr, info);
  benchmark::DoNotOptimize(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NotificationPost);

void BM_NotificationPost_Baseline_DirectCalls(benchmark::State& state) {
  int64_t calls = 0;
  std::vector<std::function<void(const tq::Dictionary&)>> blocks(3, [&](const tq::Dictionary&) { ++calls; });
  tq::Dictionary info{{u"interface", u"eth0"}};
  for (auto _ : state) {
    for (auto& b : blocks) b(info);
  }
  benchmark::DoNotOptimize(calls);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NotificationPost_Baseline_DirectCalls);

}  // namespace

BENCHMARK_MAIN();
