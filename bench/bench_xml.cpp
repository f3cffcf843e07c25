// XML parsing against its peers, on generated documents of 1 MB and 50 MB,
// element-heavy (small elements with attributes) and text-heavy (long
// paragraphs). Into a tree: CKXmlParserDOM against libxml2's DOM
// (xmlReadMemory) and pugixml's DOM. Events only: CKXmlParser with empty
// handlers against expat with empty handlers. Each benchmark reports MB/s;
// main then prints one "ratio" line per pair (Kelvor MB/s / peer MB/s, best
// run, CPU time) with the goal next to it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <expat.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <pugixml.hpp>

#include <base/tools/KXml.h>
#include <base/tools/KXmlParser.h>

namespace {

struct CDoc {
  const char* name;
  std::string text;
};

std::string ElementHeavy(size_t nBytes) {
  std::string s = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n";
  char buf[256];
  for (unsigned i = 0; s.size() < nBytes; ++i) {
    snprintf(buf, sizeof(buf),
             "  <item id=\"%u\" name=\"item-%u\" kind='k%u'><a>%u</a><b x=\"1\" y=\"2\"/>"
             "<c>t&amp;u</c></item>\n",
             i, i, i % 7, i * 31u);
    s += buf;
  }
  return s + "</root>\n";
}

std::string TextHeavy(size_t nBytes) {
  static const char* const kWords[] = {"lorem", "ipsum", "dolor", "sit", "amet", "consectetur",
                                       "adipiscing", "elit", "sed", "do", "eiusmod", "tempor"};
  std::string s = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n";
  for (unsigned i = 0; s.size() < nBytes; ++i) {
    s += "<p n=\"" + std::to_string(i) + "\">";
    for (unsigned w = 0; w < 400; ++w) {
      s += kWords[(i * 7 + w) % 12];
      s += (w % 50 == 49) ? "\n" : (w % 97 == 0 ? " &lt;b&gt; " : " ");
    }
    s += "</p>\n";
  }
  return s + "</root>\n";
}

std::vector<CDoc>& Docs() {
  static std::vector<CDoc> docs = {
      {"elements_1MB", ElementHeavy(1u << 20)},
      {"text_1MB", TextHeavy(1u << 20)},
      {"elements_50MB", ElementHeavy(50u << 20)},
      {"text_50MB", TextHeavy(50u << 20)},
  };
  return docs;
}

void Bytes(benchmark::State& state, const std::string& s) {
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)s.size());
}

void KelvorTree(benchmark::State& state, const std::string& s) {
  CKXmlParserDOM dom;
  for (auto _ : state) {
    if (!dom.Parse(s.data(), (unsigned)s.size())) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(dom.GetTree()->GetChildrenCount());
  }
  Bytes(state, s);
}

void Libxml2Tree(benchmark::State& state, const std::string& s) {
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadMemory(s.data(), (int)s.size(), "bench.xml", nullptr, XML_PARSE_HUGE);
    if (!doc) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(doc);
    xmlFreeDoc(doc);
  }
  Bytes(state, s);
}

void PugixmlTree(benchmark::State& state, const std::string& s) {
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(s.data(), s.size())) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(doc.first_child());
  }
  Bytes(state, s);
}

void KelvorEvents(benchmark::State& state, const std::string& s) {
  CKXmlParser p;
  for (auto _ : state)
    if (!p.Parse(s.data(), (unsigned)s.size())) state.SkipWithError("parse failed");
  Bytes(state, s);
}

void XMLCALL ExpatStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL ExpatEnd(void*, const XML_Char*) {}
void XMLCALL ExpatText(void*, const XML_Char*, int) {}

void ExpatEvents(benchmark::State& state, const std::string& s) {
  for (auto _ : state) {
    XML_Parser p = XML_ParserCreate(nullptr);
    XML_SetElementHandler(p, ExpatStart, ExpatEnd);
    XML_SetCharacterDataHandler(p, ExpatText);
    if (XML_Parse(p, s.data(), (int)s.size(), 1) != XML_STATUS_OK) state.SkipWithError("parse failed");
    XML_ParserFree(p);
  }
  Bytes(state, s);
}

class CBestReporter : public benchmark::ConsoleReporter {
public:
  std::map<std::string, double> best;  // MB/s
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Iteration) continue;
      const auto it = r.counters.find("bytes_per_second");
      if (it == r.counters.end()) continue;
      const double mbs = it->second.value / 1e6;
      double& b = best[r.run_name.function_name];
      if (mbs > b) b = mbs;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  struct CImpl {
    const char* name;
    void (*fn)(benchmark::State&, const std::string&);
  };
  const CImpl impls[] = {{"kelvor_tree", KelvorTree},     {"libxml2_tree", Libxml2Tree},
                         {"pugixml_tree", PugixmlTree},   {"kelvor_events", KelvorEvents},
                         {"expat_events", ExpatEvents}};
  for (const CDoc& d : Docs())
    for (const CImpl& m : impls) {
      const std::string* s = &d.text;
      auto fn = m.fn;
      benchmark::RegisterBenchmark((std::string(m.name) + "/" + d.name).c_str(),
                                   [s, fn](benchmark::State& st) { fn(st, *s); })
          ->Unit(benchmark::kMillisecond);
    }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  CBestReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  struct CPair {
    const char *kelvor, *peer;
    double goal;  // the Kelvor/peer speed ratio aimed at
  };
  const CPair pairs[] = {{"kelvor_tree", "libxml2_tree", 1.0},
                         {"kelvor_tree", "pugixml_tree", 0.5},
                         {"kelvor_events", "expat_events", 1.0}};
  std::printf("\n%-40s %10s %10s %7s %5s\n", "pair (MB/s)", "kelvor", "peer", "ratio", "goal");
  for (const CDoc& d : Docs())
    for (const CPair& p : pairs) {
      const std::string k = std::string(p.kelvor) + "/" + d.name, o = std::string(p.peer) + "/" + d.name;
      if (!reporter.best.count(k) || !reporter.best.count(o) || reporter.best[o] <= 0) continue;
      std::printf("ratio %-34s %10.1f %10.1f %7.2f %5.1f\n", (k + " vs " + p.peer).c_str(),
                  reporter.best[k], reporter.best[o], reporter.best[k] / reporter.best[o], p.goal);
    }
  benchmark::Shutdown();
  return 0;
}
