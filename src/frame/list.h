// Building the malloc'd C lists handed to callers (DiskListNode,
// SmartInfoEntry, ...): cells are appended in order, owned by the builder
// until release() hands the head over, and freed with the list's own free
// function if the builder goes out of scope first, so that a failure half
// way leaves nothing behind.
//
//   vexo::ListBuilder<DiskListNode, DiskInfoEnumFree> list;
//   DiskListNode *cell = list.appendNew();   // zeroed, already linked
//   if (!cell || !(cell->info = ...)) return fail(VEXO_ERR_NOMEM);
//   *out = list.release();
#pragma once

#include <cstddef>
#include <cstdlib>

namespace vexo {

template <typename Cell, void (*FreeList)(Cell *)>
class ListBuilder {
public:
	ListBuilder() = default;
	ListBuilder(const ListBuilder &) = delete;
	ListBuilder &operator=(const ListBuilder &) = delete;
	~ListBuilder()
	{
		if (head_)
			FreeList(head_);
	}

	// Links one cell at the end; the builder owns it from here on.
	void append(Cell *cell) noexcept
	{
		cell->next = nullptr;
		*tail_ = cell;
		tail_ = &cell->next;
		++size_;
	}
	void prepend(Cell *cell) noexcept
	{
		cell->next = head_;
		head_ = cell;
		if (tail_ == &head_)
			tail_ = &cell->next;
		++size_;
	}
	// A zeroed cell from calloc, appended; null when memory ran out (the
	// list is unchanged then). Whatever the caller hangs on it is freed
	// with the list.
	Cell *appendNew() noexcept
	{
		auto *cell = static_cast<Cell *>(std::calloc(1, sizeof(Cell)));
		if (cell)
			append(cell);
		return cell;
	}

	Cell *head() const noexcept { return head_; }
	std::size_t size() const noexcept { return size_; }
	bool empty() const noexcept { return !head_; }

	// The head for the caller, who frees it from now on.
	Cell *release() noexcept
	{
		Cell *h = head_;
		head_ = nullptr;
		tail_ = &head_;
		size_ = 0;
		return h;
	}

private:
	Cell *head_ = nullptr;
	Cell **tail_ = &head_;
	std::size_t size_ = 0;
};

} // namespace vexo
