/*
 * A program outside the tree, built against the installed library: lists
 * the data disks of the box it runs on, as a daemon of the appliance would.
 * Run it on a simulated box with
 *   vexosim run ROOT -- ./consumer
 */
#include <inttypes.h>
#include <stdio.h>

#include <vexohw/disk_enum.h>
#include <vexoplatform/vexocore.h>

int main(void)
{
	const int32_t mask = DISK_CONTAINER_MASK_DATA;
	DiskEnumFilter filter = {&mask};
	DiskListNode *list = NULL;
	const DiskListNode *c;
	int n = DiskInfoEnum(&filter, &list);

	if (n < 0) {
		fprintf(stderr, "consumer: cannot list the disks (error 0x%04X)\n", VLIBCErrGet());
		return 1;
	}
	for (c = list; c; c = c->next)
		printf("%-10s %-28s %" PRIu64 " bytes\n", c->info->path, c->info->model, c->info->sizeBytes);
	printf("%d data disks\n", n);
	DiskInfoEnumFree(list);
	return 0;
}
