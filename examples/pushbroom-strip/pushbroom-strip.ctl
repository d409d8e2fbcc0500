params          params.txt
ls-params       lspar.txt
camera          camera.txt
image           images.txt
image-geometry  orientations.txt
image-crds      image-coords.txt
obj-crds        object-coords.txt
ctrl-supp       control.txt
pos-cor         position-cor.txt
att-cor         attitude-cor.txt
stop-dep

Keyword and file, read in this order: cameras before images, images before their
coordinates, object points before their roles.
