frame,time,mean red
0,0,146.54688
