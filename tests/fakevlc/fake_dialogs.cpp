// The fake libvlc's dialogs: callbacks an instance registers, raised from threads at the test's word.
