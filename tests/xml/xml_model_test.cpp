// Random documents against the model: a listener that hears of the wrong element, an order that shifts, a
// text that lands elsewhere or is cut between the parser's pieces, a path that is wrong after a document that
// failed.
#include "xml/xml_model.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using namespace tessel_test;

/// Writes a random document and tells the model what is in it.
class random_document {
public:
    random_document(std::mt19937& random, xml_model& model) : m_random(random), m_model(model) {}

    // fails: the document breaks off at a random place.
    std::string write(bool fails) {
        m_left = 1 + pick(40);
        m_fail_at = fails ? 1 + pick(m_left) : 0;
        element(0);
        m_model.finish();
        return m_text;
    }

    bool is_whole() const { return !broken(); }

private:
    unsigned pick(std::size_t count) { return static_cast<unsigned>(m_random() % count); }
    bool broken() const { return m_fail_at != 0 && m_left < m_fail_at; }

    template <std::size_t k_size>
    std::string one_of(const char* const (&words)[k_size]) {
        return words[pick(k_size)];
    }
    static wide_string wide(const std::string& ascii) { return wide_string(ascii.begin(), ascii.end()); }

    void element(int depth) {
        static const char* const k_names[] = {"a", "b", "c", "ab", "long-name:with.prefix"};
        static const char* const k_attributes[] = {"x", "y", "a-longer-name"};
        static const char* const k_values[] = {"x", "y", "v", ""};
        --m_left;
        const std::string name = one_of(k_names);
        std::vector<wide_string> attributes;
        m_text += "<" + name;
        for (const char* const attribute : k_attributes) {
            if (pick(2) == 0) {
                const std::string value = one_of(k_values);
                m_text += std::string(" ") + attribute + "='" + value + "'";
                attributes.push_back(wide(attribute));
                attributes.push_back(wide(value));
            }
        }
        m_text += ">";
        m_model.start(wide(name), attributes);
        while (m_left != 0 && !broken() && pick(8) != 0) {
            content(depth);
        }
        if (broken()) {
            m_text += m_text.back() == '<' ? "" : "<";
            return;
        }
        m_text += "</" + name + ">";
        m_model.end(wide(name));
    }

    void content(int depth) {
        switch (pick(5)) {
            case 0:
                m_text += "&amp;<![CDATA[<]]>\xC3\xA9\xF0\x9F\x98\x80";
                return m_model.text(TESSEL_W("&<\u00E9\U0001F600"));
            case 1:
                m_text += "\r\n  ";
                return m_model.text(TESSEL_W("\n  "));
            case 2: {
                const std::string words(pick(3000), 'w');
                m_text += words + "<!-- " + words + " -->";
                return m_model.text(wide(words));
            }
            default:
                return depth < 12 ? element(depth + 1) : void();
        }
    }

    std::mt19937& m_random;
    xml_model& m_model;
    std::string m_text;
    std::size_t m_left = 0;
    std::size_t m_fail_at = 0;
};

xml_registration random_registration(std::mt19937& random) {
    static const wchar* const k_steps[] = {TESSEL_W("/a"), TESSEL_W("/b"), TESSEL_W("/c"), TESSEL_W("/ab"),
                                           TESSEL_W("/long-name:with.prefix")};
    static const wchar* const k_attributes[] = {TESSEL_W("x"), TESSEL_W("y"), TESSEL_W("v"),
                                                TESSEL_W("a-longer-name")};
    xml_registration one;
    one.kind = static_cast<xml_registration::kind_of>(random() % 5);
    one.id = static_cast<unsigned>(random() % 6);
    one.target = static_cast<unsigned>(random() % 12);
    if (one.kind == xml_registration::attribute_text) {
        one.path = k_attributes[random() % std::size(k_attributes)];
        return one;
    }
    for (auto steps = random() % 4; steps != 0; --steps) {
        one.path += k_steps[random() % std::size(k_steps)];
    }
    if (random() % 16 == 0) {
        one.path.insert(0, random() % 2 == 0 ? TESSEL_W("/") : TESSEL_W("x"));  // nothing has such a path
    }
    return one;
}

template <class Handler>
int feed(Handler& handler, const std::string& document, unsigned way) {
    if (way % 2 == 0) {
        return handler.ParseXmlUtf8(document.data(), static_cast<int>(document.size()));
    }
    wide_string wide;  // of the few characters that the documents have
    for (std::size_t at = 0; at < document.size(); ++at) {
        switch (static_cast<unsigned char>(document[at])) {
            case 0xC3:
                wide += TESSEL_W("\u00E9");
                at += 1;
                break;
            case 0xF0:
                wide += TESSEL_W("\U0001F600");
                at += 3;
                break;
            default:
                wide += static_cast<wchar>(document[at]);
        }
    }
    return handler.ParseXML(wide);
}

void run_one(unsigned seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    xml_model model;
    logging_handler handler;
    for (unsigned document = 0; document < 3; ++document) {
        for (auto count = random() % 200; count != 0; --count) {
            const xml_registration one = random_registration(random);
            model.add(one);
            handler.add(one);
        }
        for (unsigned count = 0; count < 4; ++count) {
            model.inside[model.log.size() + random() % 20] = random_registration(random);
        }
        handler.inside = model.inside;
        const bool fails = random() % 3 == 0;
        random_document written(random, model);
        const std::string text = written.write(fails);
        ASSERT_EQ(feed(handler, text, static_cast<unsigned>(random())), written.is_whole() ? 1 : 0) << text;
        ASSERT_EQ(handler.log, model.log) << text;
        for (const auto& [target, value] : model.texts) {
            ASSERT_EQ(handler.texts[target], value) << "target " << target << " of " << text;
        }
        handler.Create();
    }
}

TEST(XmlModel, AgreesOnRandomDocuments) {
    for (unsigned seed = 1; seed <= 400 && !HasFailure(); ++seed) {
        run_one(seed);
    }
}

}  // namespace
