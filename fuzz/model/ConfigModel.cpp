#include "model/ConfigModel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

struct Element {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::vector<Element> children;

    [[nodiscard]] std::optional<std::string> Get(const std::string& attribute) const {
        const auto found = attributes.find(attribute);
        return found == attributes.end() ? std::nullopt : std::optional(found->second);
    }
};

// levels: how deep to look; no rule goes deeper than a label of a client of a module.
Element ElementOf(const TiXmlElement& source, int levels) {
    Element element{source.ValueStr(), {}, {}};
    for (const TiXmlAttribute* attribute = source.FirstAttribute(); attribute != nullptr;
         attribute = attribute->Next()) {
        element.attributes.emplace(attribute->Name(), attribute->ValueStr());
    }
    for (const TiXmlNode* child = source.FirstChild(); levels != 0 && child != nullptr;
         child = child->NextSibling()) {
        if (const TiXmlElement* nested = child->ToElement()) {
            element.children.push_back(ElementOf(*nested, levels - 1));
        }
    }
    return element;
}

std::string Number(const std::optional<std::string>& text, unsigned int absent) {
    return std::to_string(text ? static_cast<unsigned int>(std::strtol(text->c_str(), nullptr, 10))
                               : absent);
}

class Walk {
  public:
    explicit Walk(ModelReading& reading) : reading_(reading) {}

    void Root(const Element& root) {
        if (!root.Get("trace")) {
            throw std::runtime_error("Bad parameter:Invalid Attribute");
        }
        reading_.traceEnabled = root.Get("trace") == "1";
        Note(reading_.traceEnabled ? "trace on" : "trace off");
        if (reading_.traceEnabled) {
            Siblings(root.children);
        }
    }

  private:
    static constexpr std::size_t kNone = SIZE_MAX;

    void Note(const std::string& line) { reading_.settings.push_back(line); }

    static std::size_t Find(const std::vector<Element>& elements, std::string_view name,
                            std::size_t from) {
        for (std::size_t i = from; i < elements.size(); ++i) {
            if (elements[i].name == name) {
                return i;
            }
        }
        return kNone;
    }

    void Siblings(const std::vector<Element>& elements) {
        std::size_t at = Find(elements, "Logfile", 0);
        if (at == kNone) {
            throw std::runtime_error("Bad parameter:error:Logfile configuation invalid");
        }
        LogFile(elements[at]);
        const auto optional = [&](std::string_view name, auto apply) {
            const std::size_t found = Find(elements, name, at + 1);
            if (found != kNone) {
                at = found;
                apply(elements[found]);
            }
        };
        optional("StatusTrace", [this](const Element& element) {
            Note(element.Get("state").value_or("on") == "on" ? "status on" : "status off");
        });
        optional("Network", [this](const Element& element) {
            const std::string mode = element.Get("mode").value_or("");
            Note(mode == "server" ? "network 0" : mode == "client" ? "network 1" : "network 2");
        });
        optional("Server", [this](const Element& element) {
            Note("server port " + Number(element.Get("port_number"), 3456));
            Note("connections " + Number(element.Get("max_connection"), 1));
        });
        optional("Client", [this](const Element& element) {
            Note("client port " + Number(element.Get("port_number"), 3456));
            if (!element.Get("server_name")) {
                throw std::runtime_error("Bad logic:Error: no valid hostname is specified");
            }
            Note("server name " + *element.Get("server_name"));
        });
        at = Find(elements, "Global", at + 1);
        if (at == kNone) {
            throw std::runtime_error("Bad logic:Error: invalid element");
        }
        Global(elements[at]);
        while ((at = Find(elements, "Module", at + 1)) != kNone) {
            Module(elements[at]);
        }
    }

    // A missing attribute costs the rest of this element alone.
    void LogFile(const Element& element) {
        constexpr std::array<std::pair<const char*, const char*>, 5> kRequired{
            {{"path", "Bad logic:error: Invalid path "},
             {"size", "Bad logic:Error: invalid size"},
             {"maxbackups", "Bad logic:Error: invalid maxbackups "},
             {"preserve_size", "Bad logic:Error: invalid preserve_size"},
             {"preserve_maxbackups", "Bad logic:Error: invalid preserve_maxbackups"}}};
        reading_.logPath = element.Get("path").value_or("");
        for (const auto& [name, failure] : kRequired) {
            if (!element.Get(name)) {
                reading_.failure = failure;
                return;
            }
        }
        if (element.Get("duplicate_to_debug_console")) {
            Note(element.Get("duplicate_to_debug_console") == "1" ? "duplicate on"
                                                                  : "duplicate off");
        }
        Note(element.Get("log_format") == "binary" ? "format binary" : "format text");
    }

    void Global(const Element& global) {
        for (const Element& child : global.children) {
            if (child.name == "GLabel") {
                Label(child, "", "");
            } else if (child.name == "GClient") {
                Client(child, "", "GClientLabel");
            }
        }
    }
    void Module(const Element& module) {
        const auto [name, on] = NameAndState(module);
        Note("module " + name + (on ? " on" : " off"));
        reading_.filter.SetModule(name, on);
        for (std::size_t i = 0; on && i < module.children.size(); ++i) {
            const Element& child = module.children[i];
            if (child.name == "MLabel") {
                Label(child, name, "");
            } else if (child.name == "MClient") {
                Client(child, name, "MClientLabel");
            }
        }
    }
    void Client(const Element& client, const std::string& module, std::string_view labels) {
        const auto [name, on] = NameAndState(client);
        Note("client " + module + "/" + name + (on ? " on" : " off"));
        reading_.filter.SetClient(module, name, on);
        for (std::size_t i = 0; on && i < client.children.size(); ++i) {
            if (client.children[i].name == labels) {
                Label(client.children[i], module, name);
            }
        }
    }
    void Label(const Element& label, const std::string& module, const std::string& client) {
        const auto [name, on] = NameAndState(label);
        Note("label " + module + "/" + client + "/" + name + (on ? " on" : " off"));
        reading_.filter.SetLabel(module, client, name, on);
    }
    static std::pair<std::string, bool> NameAndState(const Element& element) {
        for (const std::string attribute : {"name", "state"}) {
            if (!element.Get(attribute)) {
                throw std::runtime_error("Bad logic:Error: invalid Attribute \"" + attribute +
                                         "\" ");
            }
        }
        return {*element.Get("name"), element.Get("state") == "1"};
    }

    ModelReading& reading_;
};

}  // namespace

ModelReading ModelReadConfig(const TiXmlElement* root) {
    constexpr int kLevels = 4;
    ModelReading reading;
    try {
        Walk(reading).Root(root != nullptr ? ElementOf(*root, kLevels) : Element{});
    } catch (const std::runtime_error& failure) {
        if (reading.failure.empty()) {
            reading.failure = failure.what();
        }
    }
    return reading;
}
