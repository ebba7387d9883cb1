// vexohw mail: a disk's status mail, what it would say and sending it when
// the status calls for one.
#include <cstdio>
#include <dirent.h>
#include <string>
#include <vexohw/disk_mail.h>
#include <vexohw/ext.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"
#include "spool.h"

using namespace vexo::cli;

namespace {

int mailContent(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: mail content DISK [--unc] [--wake]");
	std::string p = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, p))
		return 0;
	char content[VEXO_DISK_MAIL_CONTENT_SIZE] = {};
	int attention = 0;
	int got = VEXODiskMailContentGet(p.c_str(), content, sizeof(content), 0, ctx.has("unc"), &attention);
	if (got < 0)
		return fail("no mail content for %s (error 0x%04X)", p.c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", p);
	r.set("report_needed", got > 0);
	r.set("rows_marked", got > 0 ? Value(attention) : Value());
	r.set("content_html", got > 0 ? Value(std::string(content)) : Value());
	printRecord(ctx, r);
	return 0;
}

int mailSend(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: mail send DISK [--wake]");
	std::string p = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, p))
		return 0;
	int before = spooled();
	if (VEXODiskMailSend(p.c_str()) != 0)
		return fail("status mail of %s failed (error 0x%04X)", p.c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", p);
	r.set("mail_sent", spooled() > before);
	printRecord(ctx, r);
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("mail content", "DISK [--unc] [--wake]", "the rows a status mail of the disk would carry", mailContent,
		 {});
VEXO_CLI_COMMAND("mail send", "DISK [--wake]", "send the disk's status mail if its status calls for one; says whether one went",
		 mailSend, {});
