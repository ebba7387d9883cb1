// vexohw: every family of the library from the shell.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "cli.h"

namespace vexo::cli {
std::vector<Command> &commands();
}

using namespace vexo::cli;

namespace {

std::vector<std::string> words(const char *s)
{
	std::istringstream in(s);
	std::vector<std::string> w;
	for (std::string x; in >> x;)
		w.push_back(x);
	return w;
}

// A command takes the options its usage line names, and those listed as
// taking a value; anything else is refused here, once for every command.
bool takesOption(const Command &c, const std::string &name)
{
	if (std::find(c.valueOptions.begin(), c.valueOptions.end(), name) != c.valueOptions.end())
		return true;
	const std::string u = c.usage ? c.usage : "";
	for (size_t p = u.find("--"); p != std::string::npos; p = u.find("--", p + 2)) {
		size_t end = p + 2;
		while (end < u.size() && (std::islower((unsigned char)u[end]) || std::isdigit((unsigned char)u[end]) || u[end] == '-'))
			++end;
		if (u.substr(p + 2, end - p - 2) == name)
			return true;
	}
	return false;
}

void usage(FILE *out)
{
	std::fprintf(out, "usage: vexohw [--json] [--verbose] [--sysroot DIR] COMMAND ...\n\ncommands:\n");
	std::vector<const Command *> sorted;
	for (const auto &c : commands())
		sorted.push_back(&c);
	std::sort(sorted.begin(), sorted.end(), [](auto *a, auto *b) { return std::strcmp(a->words, b->words) < 0; });
	for (const auto *c : sorted) {
		std::string head = std::string(c->words) + (c->usage && *c->usage ? std::string(" ") + c->usage : "");
		std::fprintf(out, "  %-44s %s\n", head.c_str(), c->summary);
	}
	std::fprintf(out,
		     "\n--json prints the same answer as JSON. --verbose sends the library's log to stderr.\n"
		     "--sysroot DIR (or VEXO_SYSROOT) runs against a simulated appliance root.\n");
}

} // namespace

int main(int argc, char **argv)
{
	std::vector<std::string> rest;
	bool json = false;
	for (int i = 1; i < argc; ++i) {
		std::string a = argv[i];
		if (a == "--json") {
			json = true;
		} else if (a == "--verbose" || a == "-v") {
			::setenv("VEXO_LOG", "stderr", 1);
		} else if (a == "--sysroot" && i + 1 < argc) {
			::setenv("VEXO_SYSROOT", argv[++i], 1);
		} else if (a.rfind("--sysroot=", 0) == 0) {
			::setenv("VEXO_SYSROOT", a.c_str() + 10, 1);
		} else if (a == "--help" || a == "-h") {
			usage(stdout);
			return 0;
		} else {
			rest.push_back(a);
		}
	}
	if (rest.empty()) {
		usage(stderr);
		return 2;
	}
	// The command whose words are the longest prefix of the arguments.
	const Command *best = nullptr;
	size_t bestLen = 0;
	for (const auto &c : commands()) {
		auto w = words(c.words);
		if (w.size() <= rest.size() && w.size() > bestLen && std::equal(w.begin(), w.end(), rest.begin())) {
			best = &c;
			bestLen = w.size();
		}
	}
	if (!best) {
		std::fprintf(stderr, "vexohw: unknown command '%s'\n\n", rest[0].c_str());
		usage(stderr);
		return 2;
	}
	Context ctx;
	ctx.json = json;
	for (size_t i = bestLen; i < rest.size(); ++i) {
		const std::string &a = rest[i];
		if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
			std::string name = a.substr(2), value;
			auto eq = name.find('=');
			if (eq != std::string::npos) {
				value = name.substr(eq + 1);
				name = name.substr(0, eq);
			} else if (std::find(best->valueOptions.begin(), best->valueOptions.end(), name) !=
				   best->valueOptions.end()) {
				if (i + 1 >= rest.size())
					return fail("option --%s needs a value", name.c_str());
				value = rest[++i];
			}
			if (!takesOption(*best, name))
				return fail("%s: unknown option --%s (usage: %s %s)", best->words, name.c_str(), best->words,
					    best->usage);
			ctx.options[name].push_back(value);
		} else {
			ctx.args.push_back(a);
		}
	}
	return best->run(ctx);
}
