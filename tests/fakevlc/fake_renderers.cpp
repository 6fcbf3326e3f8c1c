// The fake libvlc's renderer discoverers and items.
