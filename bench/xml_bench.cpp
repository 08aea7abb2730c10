// XML events against Expat alone, its handlers empty, fed as fast as it can be. All sides parse the same
// document in turns; "ratio" is ours over the reference's bytes a second with 50 registrations, "ratio_1000"
// with 1,000, "many" the one over the other, all by the medians of the processor's time.
#include "tessel/xml/xml_handler.h"
#include "xml/expat_wide.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using kro::tessel::CTString;

// The answer of an address book: records of texts and attributes, groups in groups, some of it in other
// scripts.
class address_book {
public:
    explicit address_book(std::size_t bytes) {
        m_text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<book>\n";
        while (m_text.size() < bytes) {
            add("  <group name=\"", word(), "\">\n");
            for (auto contacts = 1 + m_random() % 20; contacts != 0; --contacts) {
                contact();
            }
            add("  </group>\n");
        }
        add("</book>\n");
    }

    const std::string& text() const { return m_text; }

private:
    template <class... Texts>
    void add(const Texts&... texts) {
        (m_text.append(texts), ...);
    }

    const char* word() {
        static const char* const k_words[] = {"meeting",  "M\u00FCller", "the",         "\u043F\u0440\u0438",
                                              "tomorrow", "please",      "\u65E5\u672C"};
        return k_words[m_random() % std::size(k_words)];
    }

    void contact() {
        const std::string number = std::to_string(m_random());
        add("    <contact id=\"", number, "\" online=\"", m_random() % 2 != 0 ? "yes" : "no", "\">\n");
        add("      <name>", word(), " ", word(), "</name>\n      <mail>", number, "@example.com</mail>\n");
        add("      <address><street>", word(), "</street><city>", word(), "</city></address>\n      <note>");
        for (auto words = m_random() % 12; words != 0; --words) {
            add(word(), " ");
        }
        add("&amp; more</note>\n      <unread/>\n    </contact>\n");
    }

    std::mt19937 m_random{1};
    std::string m_text;
};

/// A host that hears of every contact and keeps its texts.
class listener : public EXPAT_EX::CXMLHandler {
public:
    explicit listener(std::size_t registrations) {
        const CTString contact = TESSEL_W("/book/group/contact");
        AddNodeListEventListener(1, TESSEL_W("/book/group"));
        AddNodeEventListener(2, contact);
        AddAttributeEventListener(3, contact);
        AddAttributeTextSelecter(3, TESSEL_W("id"), &m_texts[0]);
        AddAttributeTextSelecter(3, TESSEL_W("online"), &m_texts[1]);
        AddTextSelecter(contact + TESSEL_W("/name"), &m_texts[2]);
        AddTextSelecter(contact + TESSEL_W("/mail"), &m_texts[3]);
        AddTextSelecter(contact + TESSEL_W("/address/city"), &m_texts[4]);
        AddTextSelecter(contact + TESSEL_W("/note"), &m_texts[5]);
        // The rest waits for what other documents have, beside and below what this one has.
        for (unsigned id = 9; id < registrations; ++id) {
            const std::string number = std::to_string(id);
            const CTString name(kro::tessel::wide_string(number.begin(), number.end()));
            switch (id % 3) {
                case 0:
                    AddNodeEventListener(id, contact + TESSEL_W("/field") + name);
                    break;
                case 1:
                    AddNodeListEventListener(id, TESSEL_W("/book/list") + name + TESSEL_W("/entry"));
                    break;
                default:
                    AddTextSelecter(contact + TESSEL_W("/address/line") + name, &m_texts[6]);
            }
        }
    }

    std::size_t heard() const { return m_heard; }

    void OnStartNodeEvent(unsigned int /*id*/) override {
        for (CTString& text : m_texts) {
            text.clear();
        }
    }
    void OnEndNodeEvent(unsigned int /*id*/) override { m_heard += m_texts[2].size(); }

private:
    CTString m_texts[7];
    std::size_t m_heard = 0;
};

void XMLCALL on_start(void* /*user*/, const XML_Char* /*name*/, const XML_Char** /*attributes*/) {}
void XMLCALL on_end(void* /*user*/, const XML_Char* /*name*/) {}
void XMLCALL on_text(void* /*user*/, const XML_Char* /*text*/, int /*length*/) {}

// piece: how much Expat gets at a time.
void expat_alone(const std::string& document, std::size_t piece) {
    XML_Parser const parser = XML_ParserCreate_MM(nullptr, nullptr, nullptr);
    XML_SetElementHandler(parser, on_start, on_end);
    XML_SetCharacterDataHandler(parser, on_text);
    for (std::size_t at = 0; at < document.size(); at += piece) {
        const std::size_t bytes = std::min(piece, document.size() - at);
        const int last = at + bytes == document.size() ? 1 : 0;
        if (XML_Parse(parser, document.data() + at, static_cast<int>(bytes), last) != XML_STATUS_OK) {
            std::abort();
        }
    }
    XML_ParserFree(parser);
}

// Of this thread's processor: the machine may be busy with other work.
double seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Work>
void measure(std::vector<double>& times, Work work) {
    const double start = seconds();
    work();
    times.push_back(seconds() - start);
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void parse(const std::string& document, std::size_t registrations) {
    listener host(registrations);
    if (host.ParseXmlUtf8(document.data(), static_cast<int>(document.size())) != 1 || host.heard() == 0) {
        std::abort();
    }
}

void xml_events(benchmark::State& state) {
    const std::string document = address_book(static_cast<std::size_t>(state.range(0)) << 20U).text();
    std::vector<double> whole;
    std::vector<double> pieces;
    std::vector<double> few;
    std::vector<double> many;
    while (state.KeepRunning()) {
        measure(whole, [&] { expat_alone(document, document.size()); });
        measure(pieces, [&] { expat_alone(document, std::size_t{32} << 10U); });
        measure(few, [&] { parse(document, 50); });
        measure(many, [&] { parse(document, 1000); });
        state.SetIterationTime(few.back());
    }
    state.counters["expat_MB/s"] = static_cast<double>(document.size()) / median(whole) / 1e6;
    state.counters["ratio_whole"] = median(whole) / median(few);
    state.counters["ratio"] = std::min(median(whole), median(pieces)) / median(few);
    state.counters["ratio_1000"] = std::min(median(whole), median(pieces)) / median(many);
    state.counters["many"] = median(few) / median(many);
}
BENCHMARK(xml_events)->Arg(20)->UseManualTime()->MinTime(3);

}  // namespace

BENCHMARK_MAIN();
