// vexohw: one data model per answer, rendered as a table or as JSON.
// Commands register themselves with VEXO_CLI_COMMAND in their own file.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>
#include <vexoplatform/vexocore.h>

namespace vexo::cli {

// A JSON-shaped value: null, bool, integer, real, text, list or ordered object.
class Value {
public:
	using List = std::vector<Value>;
	using Object = std::vector<std::pair<std::string, Value>>;

	Value() = default;
	Value(bool b) : v_(b) {}
	Value(int i) : v_(static_cast<long long>(i)) {}
	Value(long i) : v_(static_cast<long long>(i)) {}
	Value(long long i) : v_(i) {}
	Value(unsigned long long i) : v_(static_cast<long long>(i)) {}
	Value(double d) : v_(d) {}
	Value(const char *s) : v_(std::string(s ? s : "")) {}
	Value(std::string s) : v_(std::move(s)) {}
	static Value list() { Value v; v.v_ = List{}; return v; }
	static Value object() { Value v; v.v_ = Object{}; return v; }

	bool isNull() const { return std::holds_alternative<std::monostate>(v_); }
	bool isList() const { return std::holds_alternative<List>(v_); }
	bool isObject() const { return std::holds_alternative<Object>(v_); }
	const List &asList() const { return std::get<List>(v_); }
	const Object &asObject() const { return std::get<Object>(v_); }

	// Object: set a field (kept in insertion order). List: append.
	Value &set(const std::string &key, Value v);
	Value &push(Value v);
	const Value *get(const std::string &key) const;

	std::string json(int indent = 0) const;
	// Appends the JSON text of the value to o.
	void jsonTo(std::string &o, int indent = 0) const;
	// The value as a table cell (lists joined, null as "-").
	std::string text() const;

private:
	std::variant<std::monostate, bool, long long, double, std::string, List, Object> v_;
};

// A column of a table: the field it shows and its heading.
struct Column {
	std::string field;
	std::string heading;
};

struct Context {
	std::vector<std::string> args; // positional arguments after the command words
	std::map<std::string, std::vector<std::string>> options; // --name value (or "" for flags)
	bool json = false;

	bool has(const std::string &opt) const { return options.count(opt) > 0; }
	std::string opt(const std::string &name, const std::string &fallback = "") const;
};

// Prints rows (a list of objects) as an aligned table, or as JSON.
void printTable(const Context &ctx, const Value &rows, const std::vector<Column> &columns, const char *title = nullptr);
// Prints one object as "key: value" lines, or as JSON.
void printRecord(const Context &ctx, const Value &record);
// A small file of the box (an attribute, a flag file), read through the
// library and so under the sysroot; nothing when it cannot be read.
std::optional<std::string> readBoxFile(const std::string &appliancePath);
// A failure message on stderr; returns the exit status to use.
int fail(const char *format, ...) __attribute__((format(printf, 1, 2)));

using Handler = int (*)(Context &);

// A string list of the library, freed with the scope.
struct SzListFree {
	void operator()(VLIBSZLIST *l) const { VLIBCSzListFree(l); }
};
using SzList = std::unique_ptr<VLIBSZLIST, SzListFree>;

struct Command {
	const char *words;   // "status tables"
	const char *usage;   // arguments after the words
	const char *summary; // one line
	Handler run;
	std::vector<std::string> valueOptions; // options that take a value
};

void registerCommand(Command c);

struct Registrar {
	explicit Registrar(Command c) { registerCommand(std::move(c)); }
};

} // namespace vexo::cli

#define VEXO_CLI_CONCAT2(a, b) a##b
#define VEXO_CLI_CONCAT(a, b) VEXO_CLI_CONCAT2(a, b)
#define VEXO_CLI_COMMAND(...) \
	static ::vexo::cli::Registrar VEXO_CLI_CONCAT(vexoCliCommand_, __LINE__)(::vexo::cli::Command{__VA_ARGS__})
