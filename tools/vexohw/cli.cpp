#include "cli.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vexohw/drive_bundle.h>

namespace vexo::cli {

Value &Value::set(const std::string &key, Value v)
{
	if (!isObject())
		v_ = Object{};
	auto &o = std::get<Object>(v_);
	for (auto &[k, x] : o)
		if (k == key) {
			x = std::move(v);
			return x;
		}
	o.emplace_back(key, std::move(v));
	return o.back().second;
}

Value &Value::push(Value v)
{
	if (!isList())
		v_ = List{};
	auto &l = std::get<List>(v_);
	l.push_back(std::move(v));
	return l.back();
}

const Value *Value::get(const std::string &key) const
{
	if (!isObject())
		return nullptr;
	for (const auto &[k, x] : asObject())
		if (k == key)
			return &x;
	return nullptr;
}

namespace {

std::string quote(const std::string &s)
{
	std::string o = "\"";
	for (unsigned char c : s) {
		switch (c) {
		case '"': o += "\\\""; break;
		case '\\': o += "\\\\"; break;
		case '\n': o += "\\n"; break;
		case '\t': o += "\\t"; break;
		case '\r': o += "\\r"; break;
		default:
			if (c < 0x20) {
				char b[8];
				std::snprintf(b, sizeof(b), "\\u%04x", c);
				o += b;
			} else {
				o += static_cast<char>(c);
			}
		}
	}
	return o + "\"";
}

std::string real(double d)
{
	if (!std::isfinite(d))
		return "null";
	char b[64];
	std::snprintf(b, sizeof(b), "%.10g", d);
	return b;
}

} // namespace

// Written into one string: a box of 60 disks is a few hundred values.
void Value::jsonTo(std::string &o, int indent) const
{
	if (const auto *l = std::get_if<List>(&v_)) {
		if (l->empty()) {
			o += "[]";
			return;
		}
		o += "[\n";
		for (size_t i = 0; i < l->size(); ++i) {
			o.append(indent + 2, ' ');
			(*l)[i].jsonTo(o, indent + 2);
			o += i + 1 < l->size() ? ",\n" : "\n";
		}
		o.append(indent, ' ');
		o += ']';
		return;
	}
	if (const auto *ob = std::get_if<Object>(&v_)) {
		if (ob->empty()) {
			o += "{}";
			return;
		}
		o += "{\n";
		for (size_t i = 0; i < ob->size(); ++i) {
			o.append(indent + 2, ' ');
			o += quote((*ob)[i].first);
			o += ": ";
			(*ob)[i].second.jsonTo(o, indent + 2);
			o += i + 1 < ob->size() ? ",\n" : "\n";
		}
		o.append(indent, ' ');
		o += '}';
		return;
	}
	struct V {
		std::string operator()(std::monostate) const { return "null"; }
		std::string operator()(bool b) const { return b ? "true" : "false"; }
		std::string operator()(long long i) const { return std::to_string(i); }
		std::string operator()(double d) const { return real(d); }
		std::string operator()(const std::string &s) const { return quote(s); }
		std::string operator()(const List &) const { return {}; }
		std::string operator()(const Object &) const { return {}; }
	};
	o += std::visit(V{}, v_);
}

std::string Value::json(int indent) const
{
	std::string o;
	jsonTo(o, indent);
	return o;
}

std::string Value::text() const
{
	struct V {
		std::string operator()(std::monostate) const { return "-"; }
		std::string operator()(bool b) const { return b ? "yes" : "no"; }
		std::string operator()(long long i) const { return std::to_string(i); }
		std::string operator()(double d) const { return real(d); }
		std::string operator()(const std::string &s) const { return s.empty() ? "-" : s; }
		std::string operator()(const List &l) const
		{
			std::string o;
			for (const auto &x : l)
				o += (o.empty() ? "" : ", ") + x.text();
			return o.empty() ? "-" : o;
		}
		std::string operator()(const Object &) const { return "{...}"; }
	};
	return std::visit(V{}, v_);
}

std::string Context::opt(const std::string &name, const std::string &fallback) const
{
	auto it = options.find(name);
	return it == options.end() || it->second.empty() ? fallback : it->second.back();
}

namespace {

// Display width of UTF-8 text, counting code points.
size_t width(const std::string &s)
{
	size_t n = 0;
	for (unsigned char c : s)
		if ((c & 0xC0) != 0x80)
			++n;
	return n;
}

} // namespace

void printTable(const Context &ctx, const Value &rows, const std::vector<Column> &columns, const char *title)
{
	if (ctx.json) {
		std::printf("%s\n", rows.json().c_str());
		return;
	}
	if (title)
		std::printf("%s\n", title);
	std::vector<size_t> w;
	for (const auto &c : columns)
		w.push_back(width(c.heading));
	std::vector<std::vector<std::string>> cells;
	if (rows.isList())
		for (const auto &r : rows.asList()) {
			std::vector<std::string> line;
			for (size_t i = 0; i < columns.size(); ++i) {
				const Value *v = r.get(columns[i].field);
				line.push_back(v ? v->text() : "-");
				w[i] = std::max(w[i], width(line.back()));
			}
			cells.push_back(std::move(line));
		}
	auto printLine = [&](const std::vector<std::string> &line) {
		std::string o;
		for (size_t i = 0; i < line.size(); ++i) {
			o += line[i];
			if (i + 1 < line.size())
				o += std::string(w[i] - width(line[i]) + 2, ' ');
		}
		std::printf("%s\n", o.c_str());
	};
	std::vector<std::string> head;
	for (const auto &c : columns)
		head.push_back(c.heading);
	printLine(head);
	if (cells.empty())
		std::printf("(none)\n");
	for (const auto &line : cells)
		printLine(line);
}

void printRecord(const Context &ctx, const Value &record)
{
	if (ctx.json || !record.isObject()) {
		std::printf("%s\n", record.json().c_str());
		return;
	}
	size_t kw = 0;
	for (const auto &[k, v] : record.asObject())
		kw = std::max(kw, width(k));
	for (const auto &[k, v] : record.asObject())
		std::printf("%s:%s %s\n", k.c_str(), std::string(kw - width(k), ' ').c_str(), v.text().c_str());
}

int fail(const char *format, ...)
{
	std::fprintf(stderr, "vexohw: ");
	va_list ap;
	va_start(ap, format);
	std::vfprintf(stderr, format, ap);
	va_end(ap);
	std::fprintf(stderr, "\n");
	return 1;
}

std::vector<Command> &commands()
{
	static std::vector<Command> all;
	return all;
}

void registerCommand(Command c) { commands().push_back(std::move(c)); }

std::optional<std::string> readBoxFile(const std::string &appliancePath)
{
	char buf[4096] = "";
	if (DBReadFromFile(appliancePath.c_str(), buf, sizeof(buf)) < 0)
		return std::nullopt;
	return std::string(buf);
}

} // namespace vexo::cli
