// Finds the entries of a list by their text: an open-addressing table of
// positions in the list, at most half full. A batch may hold a hundred
// thousand paths; this takes a few bytes a path, where a node-based set takes
// dozens and leaves its freed nodes resident.
#pragma once

#include <vector>

#include <QHash>
#include <QString>

// textAt(i) gives the text of the list's entry at position i. Positions are
// indexed in order, 0, 1, 2, ..., each before the next; the list must keep
// the texts of indexed positions unchanged.
template <typename TextAt>
class PositionIndex
{
public:
    explicit PositionIndex(TextAt textAt) : m_textAt(textAt) {}

    // Makes room for count positions without growing on the way.
    void reserve(int count)
    {
        if (2 * count > static_cast<int>(m_slots.size()))
            rebuild(count);
    }

    // The position of the entry whose text is text; when there is none,
    // position (the next in order, whose entry the caller adds) is indexed
    // for it and returned.
    int insert(const QString &text, int position)
    {
        reserve(m_count + 1);
        const size_t mask = m_slots.size() - 1;
        size_t slot = qHash(text) & mask;
        for (; m_slots[slot] >= 0; slot = (slot + 1) & mask) {
            if (m_textAt(m_slots[slot]) == text)
                return m_slots[slot];
        }
        m_slots[slot] = position;
        ++m_count;
        return position;
    }

    void clear()
    {
        std::vector<int>().swap(m_slots);
        m_count = 0;
    }

private:
    // A table of a power of two slots, at least twice count, holding the
    // positions indexed so far.
    void rebuild(int count)
    {
        size_t size = 16;
        while (size < 2 * static_cast<size_t>(count))
            size *= 2;
        m_slots.assign(size, -1);
        const size_t mask = size - 1;
        for (int i = 0; i < m_count; ++i) {
            size_t slot = qHash(m_textAt(i)) & mask;
            while (m_slots[slot] >= 0)
                slot = (slot + 1) & mask;
            m_slots[slot] = i;
        }
    }

    TextAt m_textAt;
    std::vector<int> m_slots; // positions; -1: free
    int m_count = 0;
};
