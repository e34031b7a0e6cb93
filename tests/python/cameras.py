"""The cameras of these tests. Each test opens one with the fault that it needs."""

PLAIN, SILENT, DAMAGED, BUSY, FORBIDDEN, KEPT = ["1234:%04d" % number for number in range(1, 7)]
LEAVING = ["1234:%04d" % number for number in range(2001, 2010)]  # each leaves once in the life of a process

DESCRIPTION = """
camera Plain
usb 1234:0001
format MJPG
  size 640x480 200 30
format YUYV
  size 640x480 200 30
  size 322x240 29.97
format GREY
  size 320x240 200
format Y16
  size 64x48 200
format NV12
  size 32x16-640x480/16x8 from 1/50 to 1/5 step 1/1000
camera Silent
usb 1234:0002
format MJPG
  size 640x480 99/1
camera Damaged
usb 1234:0003
format MJPG
  size 640x480 200
format YUYV
  size 640x480 200
damage-every 2
camera Busy
usb 1234:0004
refuse STREAMON EBUSY
camera Forbidden
usb 1234:0005
refuse open EACCES
camera Kept
usb 1234:0006
orphan-buffers no
unplug-after 12
""" + "".join("camera Leaving\nusb %s\nunplug-after 5\nreplug-after 0.3s\n" % name for name in LEAVING)
